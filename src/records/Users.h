// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/RecordPage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

struct User {
    std::int64_t id = 0;
    std::optional<std::string> username;
    std::optional<std::string> email;
    std::optional<std::string> password; ///< servers deliver asterisks; never kept in `raw`
    std::optional<std::string> first_name;
    std::optional<std::string> last_name;
    std::optional<std::string> date_joined;
    std::optional<bool> is_staff;
    std::optional<bool> is_active;
    std::optional<bool> is_superuser;
    std::optional<std::vector<std::int64_t>> groups;
    std::optional<std::vector<std::string>> user_permissions;
    std::optional<std::vector<std::string>> inherited_permissions;

    /// "username", "email", "first_name", "last_name", "is_staff", "is_active", "is_superuser", "groups",
    /// "inherited_permissions", "user_permissions", each value to the byte as it came; a member that wasn't delivered
    /// is absent.
    std::string raw;
};

struct PaperlessGroup {
    std::int64_t id = 0;
    std::optional<std::string> name;
    std::optional<std::vector<std::string>> permissions;

    /// "name", "permissions", as for `User`.
    std::string raw;
};

/// What the server tells about the token's user; everything but the user is ignored.
struct UISettings {
    User user;
};

struct Users : RecordPageWithIds<User> {};
struct PaperlessGroups : RecordPageWithIds<PaperlessGroup> {};

} // namespace ledgerfinch
