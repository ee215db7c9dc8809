// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Dates.h"

#include <cstdint>
#include <vector>

namespace ledgerfinch {

/// What the server proposes for one document: ids, and days as midnight in the device's time zone.
struct Suggestions {
    std::vector<std::int64_t> correspondents;
    std::vector<std::int64_t> tags;
    std::vector<std::int64_t> document_types;
    std::vector<std::int64_t> storage_paths;
    std::vector<Timestamp> dates;
};

} // namespace ledgerfinch
