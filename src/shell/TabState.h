// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "shell/RawValues.h"

#include <array>

namespace ledgerfinch {

/// The tabs of the shell, in their order.
enum class SelectedTab { documents, search, add, customQueries, settings };

template <>
struct RawValues<SelectedTab> {
    static constexpr std::array<std::pair<SelectedTab, std::string_view>, 5> table{{
        {SelectedTab::documents, "documents"},
        {SelectedTab::search, "search"},
        {SelectedTab::add, "add"},
        {SelectedTab::customQueries, "customQueries"},
        {SelectedTab::settings, "settings"},
    }};
};

} // namespace ledgerfinch
