// SPDX-License-Identifier: GPL-3.0-or-later
// Which attributes a text suggests, by their match text and algorithm.
#pragma once

#include "support/PaperlessServerRecords.h"

namespace ledgerfinch::support {

/// Ids of the attributes of a kind that the viewer sees and that match the content.
std::vector<Id> matchingAttributes(const State& state, Kind kind, const Document& document, const User& viewer);

} // namespace ledgerfinch::support
