// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/RecordPage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

struct Filter_rule {
    std::int64_t rule_type = 0;
    std::optional<std::string> value;

    bool operator==(const Filter_rule&) const = default;
};

struct Saved_view {
    std::int64_t id = 0;
    std::string name;
    std::optional<bool> show_on_dashboard;
    std::optional<bool> show_in_sidebar;
    std::optional<std::string> sort_field;
    std::optional<bool> sort_reverse;
    std::vector<Filter_rule> filter_rules;

    /// "name", "show_on_dashboard", "show_in_sidebar", "sort_field", "sort_reverse", "filter_rules", each value to the
    /// byte as it came; a member that wasn't delivered is absent.
    std::string raw;
};

struct Saved_views : RecordPage<Saved_view> {};

} // namespace ledgerfinch
