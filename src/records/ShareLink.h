// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Dates.h"
#include "records/RecordPage.h"

#include <cstdint>
#include <optional>
#include <string>

namespace ledgerfinch {

struct PaperlessShareLink {
    std::int64_t id = 0;
    Timestamp created{};
    std::optional<Timestamp> expiration; ///< absent: the link never expires
    std::string slug;
    std::int64_t document = 0;
    std::string fileVersion; ///< JSON key "file_version"
};

struct PaperlessShareLinks : RecordPageWithIds<PaperlessShareLink> {};

} // namespace ledgerfinch
