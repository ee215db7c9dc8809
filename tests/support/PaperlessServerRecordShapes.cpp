// SPDX-License-Identifier: GPL-3.0-or-later
// The smaller records as JSON: saved views, share links, groups, users.
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"

namespace ledgerfinch::support {

namespace {

constexpr std::string_view passwordStars =
    "*****************************************************************************************";

} // namespace

Json savedViewJson(const SavedView& view, const User& viewer, bool fullPermissions, const ApiShape& api) {
    auto flagsOf = api.hasPersonalViews ? viewer.id : view.owner.value_or(0);
    auto addFlags = [&](Json& to) {
        to["show_on_dashboard"] = view.onDashboardOf.contains(flagsOf);
        to["show_in_sidebar"] = view.inSidebarOf.contains(flagsOf);
    };
    auto rules = Json::array();
    for (const auto& rule : view.filterRules)
        rules.push_back(Json{{"rule_type", rule.ruleType}, {"value", rule.value ? Json(*rule.value) : Json(nullptr)}});
    Json json{{"id", view.id}, {"name", view.name}};
    if (!api.hasPersonalViews) addFlags(json);
    json["sort_field"] = view.sortField ? Json(*view.sortField) : Json(nullptr);
    json["sort_reverse"] = view.sortReverse;
    json["filter_rules"] = std::move(rules);
    json["page_size"] = view.pageSize;
    json["display_mode"] = view.displayMode;
    json["display_fields"] = view.displayFields;
    json["owner"] = orNull(view.owner);
    if (fullPermissions) {
        json["permissions"] = permissionsJson(view.permissions);
    } else {
        json["user_can_change"] = mayChange(viewer, view.owner, view.permissions);
    }
    if (api.hasPersonalViews && api.hasViewFlags) addFlags(json);
    return json;
}

Json shareLinkJson(const ShareLink& link) {
    return Json{{"id", link.id},
                {"created", localTimeText(link.created)},
                {"expiration", link.expiration ? Json(localTimeText(*link.expiration)) : Json(nullptr)},
                {"slug", link.slug},
                {"document", link.document},
                {"file_version", link.fileVersion}};
}

Json groupJson(const Group& group) {
    return Json{{"id", group.id}, {"name", group.name}, {"permissions", group.permissions}};
}

Json userJson(const State& state, const User& user) {
    return Json{{"id", user.id},
                {"username", user.username},
                {"email", user.email},
                {"password", passwordStars},
                {"first_name", user.firstName},
                {"last_name", user.lastName},
                {"date_joined", localTimeText(user.dateJoined)},
                {"is_staff", user.isStaff},
                {"is_active", user.isActive},
                {"is_superuser", user.isSuperuser},
                {"groups", user.groups},
                {"user_permissions", user.permissions},
                {"inherited_permissions", inheritedPermissions(state, user)},
                {"is_mfa_enabled", false}};
}

} // namespace ledgerfinch::support
