// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

namespace ledgerfinch::decoding {

/// Resolves the escapes of what stands between the quotation marks of a JSON string, which must be valid UTF-8. Half a
/// surrogate pair becomes U+FFFD. False when an escape is none.
[[nodiscard]] bool unescape(std::string_view escaped, std::string& out);

} // namespace ledgerfinch::decoding
