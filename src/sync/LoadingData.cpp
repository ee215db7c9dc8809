// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/LoadingData.h"

#include <array>
#include <cstddef>

namespace ledgerfinch {

std::string_view stageText(loadingData stage) {
    static constexpr std::array<std::string_view, 12> kTexts{
        "Fetching groups from server",
        "Fetching users from server",
        "Fetching tags from server",
        "Fetching document types from server",
        "Fetching correspondents from server",
        "Fetching storage paths from server",
        "Fetching custom fields from server",
        "Fetching documents from server",
        "Fetching custom views from server",
        "Downloading documents from server",
        "finished",
        "error",
    };
    static_assert(kTexts.size() == static_cast<std::size_t>(loadingData::error) + 1);
    return kTexts[static_cast<std::size_t>(stage)];
}

} // namespace ledgerfinch
