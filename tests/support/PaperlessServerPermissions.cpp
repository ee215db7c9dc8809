// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerPermissions.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::array<std::string_view, 4> actions{"add", "change", "delete", "view"};

/// Which releases have a model.
enum class Since { Ever, V2_20, V3, Gone /* from release 3 on */ };

struct Model {
    std::string_view app;
    std::string_view name;
    Since since = Since::Ever;
};

constexpr Model models[]{
    {"account", "emailaddress"},
    {"account", "emailconfirmation"},
    {"admin", "logentry"},
    {"auditlog", "logentry"},
    {"auth", "group"},
    {"auth", "permission"},
    {"auth", "user"},
    {"authtoken", "token"},
    {"authtoken", "tokenproxy"},
    {"contenttypes", "contenttype"},
    {"django_celery_results", "chordcounter", Since::Gone},
    {"django_celery_results", "groupresult", Since::Gone},
    {"django_celery_results", "taskresult", Since::Gone},
    {"documents", "correspondent"},
    {"documents", "customfield"},
    {"documents", "customfieldinstance"},
    {"documents", "document"},
    {"documents", "documenttype"},
    {"documents", "log", Since::Gone},
    {"documents", "note"},
    {"documents", "paperlesstask"},
    {"documents", "savedview"},
    {"documents", "savedviewfilterrule"},
    {"documents", "sharelink"},
    {"documents", "sharelinkbundle", Since::V3},
    {"documents", "storagepath"},
    {"documents", "tag"},
    {"documents", "uisettings"},
    {"documents", "workflow"},
    {"documents", "workflowaction"},
    {"documents", "workflowactionemail", Since::V2_20},
    {"documents", "workflowactionwebhook", Since::V2_20},
    {"documents", "workflowrun", Since::V2_20},
    {"documents", "workflowtrigger"},
    {"guardian", "groupobjectpermission"},
    {"guardian", "userobjectpermission"},
    {"mfa", "authenticator", Since::V2_20},
    {"paperless", "applicationconfiguration"},
    {"paperless_mail", "mailaccount"},
    {"paperless_mail", "mailrule"},
    {"paperless_mail", "processedmail"},
    {"sessions", "session"},
    {"socialaccount", "socialaccount"},
    {"socialaccount", "socialapp"},
    {"socialaccount", "socialtoken"},
};

bool has(ServerMode mode, Since since) {
    switch (since) {
    case Since::V2_20:
        return mode != ServerMode::V2_7;
    case Since::V3:
        return mode == ServerMode::V3;
    case Since::Gone:
        return mode != ServerMode::V3;
    case Since::Ever:
        break;
    }
    return true;
}

std::vector<std::string> permissionsOf(ServerMode mode) {
    std::vector<std::string> list;
    for (const auto& model : models) {
        if (!has(mode, model.since)) continue;
        for (auto action : actions)
            list.push_back(std::string(model.app) + "." + std::string(action) + "_" + std::string(model.name));
    }
    if (mode == ServerMode::V3)
        list.insert(list.end(), {"paperless.view_global_statistics", "paperless.view_system_monitoring"});
    return list;
}

bool contains(const std::vector<Id>& ids, Id id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

bool meets(const std::vector<Id>& left, const std::vector<Id>& right) {
    return std::any_of(left.begin(), left.end(), [&](Id id) { return contains(right, id); });
}

bool contains(const std::vector<std::string>& texts, std::string_view text) {
    return std::find(texts.begin(), texts.end(), text) != texts.end();
}

} // namespace

const std::vector<std::string>& everyPermission(ServerMode mode) {
    static const std::map<ServerMode, std::vector<std::string>> all{
        {ServerMode::V2_7, permissionsOf(ServerMode::V2_7)},
        {ServerMode::V2_20, permissionsOf(ServerMode::V2_20)},
        {ServerMode::V3, permissionsOf(ServerMode::V3)},
    };
    return all.at(mode);
}

bool hasPermission(const State& state, const User& user, std::string_view codename) {
    if (user.isSuperuser) return user.isActive;
    if (contains(user.permissions, codename)) return true;
    return std::any_of(user.groups.begin(), user.groups.end(), [&](Id id) {
        auto group = state.groups.find(id);
        return group != state.groups.end() && contains(group->second.permissions, codename);
    });
}

std::string qualifiedPermission(std::string_view codename) {
    auto model = codename.substr(std::min(codename.size(), codename.find('_') + 1));
    for (const auto& [app, name, since] : models) {
        if (name == model) return std::string(app) + "." + std::string(codename);
    }
    return "documents." + std::string(codename);
}

std::vector<std::string> inheritedPermissions(const State& state, const User& user) {
    if (user.isSuperuser) return everyPermission(state.release.mode);
    std::vector<std::string> list;
    for (auto id : user.groups) {
        auto group = state.groups.find(id);
        if (group == state.groups.end()) continue;
        for (const auto& codename : group->second.permissions) {
            auto text = qualifiedPermission(codename);
            if (!contains(list, text)) list.push_back(text);
        }
    }
    return list;
}

std::vector<std::string> effectivePermissions(const State& state, const User& user) {
    auto list = user.isSuperuser ? std::vector<std::string>{} : user.permissions;
    for (const auto& text : inheritedPermissions(state, user)) {
        auto codename = text.substr(text.find('.') + 1);
        if (user.isSuperuser || !contains(list, codename)) list.push_back(codename);
    }
    return list;
}

bool maySee(const User& user, const OptionalId& owner, const ObjectPermissions& permissions) {
    return user.isSuperuser || !owner || *owner == user.id || contains(permissions.viewUsers, user.id) ||
           meets(permissions.viewGroups, user.groups);
}

bool mayChange(const User& user, const OptionalId& owner, const ObjectPermissions& permissions) {
    return user.isSuperuser || !owner || *owner == user.id || contains(permissions.changeUsers, user.id) ||
           meets(permissions.changeGroups, user.groups);
}

} // namespace ledgerfinch::support
