// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace ledgerfinch {

/// Ids of users and groups that hold one right.
struct UsersGroupsDict {
    std::optional<std::vector<std::int64_t>> users;
    std::optional<std::vector<std::int64_t>> groups;

    bool operator==(const UsersGroupsDict&) const = default;
};

/// Who may see and change a record; delivered only to those who may see it, with `full_perms=true`.
struct Document_Permissions {
    std::optional<UsersGroupsDict> view;
    std::optional<UsersGroupsDict> change;

    bool operator==(const Document_Permissions&) const = default;
};

} // namespace ledgerfinch
