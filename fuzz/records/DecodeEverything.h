// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string_view>

namespace ledgerfinch::fuzz {

// Each runs its decoders over the bytes and aborts when a promise is broken: what `raw` holds is one JSON object that
// reads back, a page that didn't decode is empty, what an encoder writes decodes again.
void decodeAsDocuments(std::string_view body);
void decodeAsAttributes(std::string_view body);

} // namespace ledgerfinch::fuzz
