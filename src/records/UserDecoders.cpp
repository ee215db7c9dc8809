// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/DecodeReport.h"

namespace ledgerfinch {
namespace decoding {

template <>
struct Members<User> {
    static constexpr std::array table{
        member<User, &User::id>("id"),
        member<User, &User::username>("username", Keep::yes),
        member<User, &User::email>("email", Keep::yes),
        member<User, &User::password>("password"),
        member<User, &User::first_name>("first_name", Keep::yes),
        member<User, &User::last_name>("last_name", Keep::yes),
        member<User, &User::date_joined>("date_joined"),
        member<User, &User::is_staff>("is_staff", Keep::yes),
        member<User, &User::is_active>("is_active", Keep::yes),
        member<User, &User::is_superuser>("is_superuser", Keep::yes),
        member<User, &User::groups>("groups", Keep::yes),
        member<User, &User::user_permissions>("user_permissions", Keep::yes),
        member<User, &User::inherited_permissions>("inherited_permissions", Keep::yes),
    };
};

template <>
struct Members<PaperlessGroup> {
    static constexpr std::array table{
        member<PaperlessGroup, &PaperlessGroup::id>("id"),
        member<PaperlessGroup, &PaperlessGroup::name>("name", Keep::yes),
        member<PaperlessGroup, &PaperlessGroup::permissions>("permissions", Keep::yes),
    };
};

template <>
struct Members<UISettings> {
    static constexpr std::array table{member<UISettings, &UISettings::user>("user")};
};

template <>
struct Members<Users> {
    static constexpr auto table = kPageMembersWithIds<Users>;
};
template <>
struct Members<PaperlessGroups> {
    static constexpr auto table = kPageMembersWithIds<PaperlessGroups>;
};

} // namespace decoding

Users decodeUsers(std::string_view body, const DecodeContext& context) {
    return decoding::decodePage<Users>(body, context, "enountered an error while decoding api response for users: ");
}

PaperlessGroups decodeGroups(std::string_view body, const DecodeContext& context) {
    return decoding::decodePage<PaperlessGroups>(body, context,
                                                 "enountered an error while decoding api response for groups: ");
}

std::optional<User> decodeUser(std::string_view body, const DecodeContext& context) {
    return decoding::decodeOne<User>(body, context, "enountered an error while decoding user: ");
}

std::optional<PaperlessGroup> decodeGroup(std::string_view body, const DecodeContext& context) {
    return decoding::decodeOne<PaperlessGroup>(body, context, "encountered an error while decoding group: ");
}

std::optional<UISettings> decodeUISettings(std::string_view body, const DecodeContext& context) {
    return decoding::decodeOne<UISettings>(body, context, "encountered an error while decoding user settings: ");
}

} // namespace ledgerfinch
