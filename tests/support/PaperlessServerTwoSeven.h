// SPDX-License-Identifier: GPL-3.0-or-later
// The oldest release: its answers are those of 2.20 in version 2 without what came later, so they are cut down here.
#pragma once

#include "support/PaperlessServerWire.h"

namespace ledgerfinch::support {

/// `segments` are those of the request's path; "documents" stands at 1.
Response asTwoSeven(Response response, const std::vector<std::string>& segments);

} // namespace ledgerfinch::support
