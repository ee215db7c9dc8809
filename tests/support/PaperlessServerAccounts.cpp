// SPDX-License-Identifier: GPL-3.0-or-later
// Login, users, groups and the own profile.
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t longestAccountName = 150;

template <typename Table, typename NameOf>
std::vector<Id> sortedByName(const Table& table, NameOf nameOf) {
    std::vector<Id> ids;
    for (const auto& [id, record] : table)
        ids.push_back(id);
    std::stable_sort(ids.begin(), ids.end(), [&](Id left, Id right) {
        return lowerAscii(nameOf(table.at(left))) < lowerAscii(nameOf(table.at(right)));
    });
    return ids;
}

/// A list of permission codenames; unknown ones are refused.
void readPermissionNames(BodyReader& body, const State& state, std::string_view key, std::vector<std::string>& target,
                         bool required) {
    const auto* value = body.find(key);
    if (value == nullptr) {
        if (required && !body.isPartial()) body.fail(key, "This field is required.");
        return;
    }
    if (!value->is_array()) {
        body.fail(key, "Expected a list of items but got type \"" + std::string(typeName(*value)) + "\".");
        return;
    }
    std::vector<std::string> names;
    for (const auto& name : *value) {
        const auto& all = everyPermission(state.release.mode);
        auto known = name.is_string() && std::any_of(all.begin(), all.end(), [&](const std::string& text) {
                         return text.substr(text.find('.') + 1) == name.get_ref<const std::string&>();
                     });
        if (!known) {
            auto text = name.is_string() ? name.get<std::string>() : textOf(name);
            body.fail(key, "Object with codename=" + text + " does not exist.");
            return;
        }
        names.push_back(name.get<std::string>());
    }
    target = std::move(names);
}

void readUser(BodyReader& body, const State& state, User& user) {
    auto named =
        body.text("username", user.username, {.required = true, .mayBeBlank = false, .longest = longestAccountName});
    auto taken = named && std::any_of(state.users.begin(), state.users.end(), [&](const auto& other) {
                     return other.first != user.id && other.second.username == user.username;
                 });
    if (taken) body.fail("username", "A user with that username already exists.");
    body.text("email", user.email);
    std::string password;
    auto isMasked = [](const std::string& text) {
        return text.find_first_not_of('*') == std::string::npos;
    };
    if (body.text("password", password) && !isMasked(password)) user.password = password;
    body.text("first_name", user.firstName, {.longest = longestAccountName});
    body.text("last_name", user.lastName, {.longest = longestAccountName});
    body.boolean("is_staff", user.isStaff);
    body.boolean("is_active", user.isActive);
    body.boolean("is_superuser", user.isSuperuser);
    body.relations("groups", user.groups, existsIn(state.groups));
    readPermissionNames(body, state, "user_permissions", user.permissions, false);
}

void readGroup(BodyReader& body, const State& state, Group& group) {
    auto named = body.text("name", group.name, {.required = true, .mayBeBlank = false, .longest = longestAccountName});
    auto taken = named && std::any_of(state.groups.begin(), state.groups.end(), [&](const auto& other) {
                     return other.first != group.id && other.second.name == group.name;
                 });
    if (taken) body.fail("name", "group with this name already exists.");
    readPermissionNames(body, state, "permissions", group.permissions, true);
}

User* findUser(Context& context) {
    auto found = context.state.users.find(context.id());
    return found == context.state.users.end() ? nullptr : &found->second;
}

Group* findGroup(Context& context) {
    auto found = context.state.groups.find(context.id());
    return found == context.state.groups.end() ? nullptr : &found->second;
}

template <typename Action>
void forAllPermissions(State& state, Action action) {
    for (auto& [id, document] : state.documents)
        action(document.owner, document.permissions);
    for (auto& table : state.attributes) {
        for (auto& [id, attribute] : table)
            action(attribute.owner, attribute.permissions);
    }
    for (auto& [id, view] : state.savedViews)
        action(view.owner, view.permissions);
}

/// Counts the attempt, or refuses it when the last minute saw too many from this address.
std::optional<Response> throttled(State& state, const std::string& address) {
    constexpr std::size_t limitOfThree = 5;
    constexpr auto loginWindow = 60 * second;
    auto limit = state.loginLimit.value_or(state.release.limitsLogins ? limitOfThree : 0);
    if (limit == 0) return std::nullopt;
    auto now = state.clock();
    auto& attempts = state.logins[address];
    std::erase_if(attempts, [&](Micros time) { return time <= now - loginWindow; });
    if (attempts.size() < limit) {
        attempts.push_back(now);
        return std::nullopt;
    }
    auto seconds = std::to_string((attempts.front() + loginWindow - now + second - 1) / second);
    auto response = detail(429, "Request was throttled. Expected available in " + seconds + " seconds.");
    response.headers.emplace_back("retry-after", seconds);
    return response;
}

} // namespace

Response login(Context& context) {
    if (auto refusal = throttled(context.state, context.request.clientAddress)) return *refusal;
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    std::string username, password;
    body.text("username", username, {.required = true, .mayBeBlank = false});
    body.text("password", password, {.required = true, .mayBeBlank = false});
    if (body.failed()) return body.errors();
    auto* user = context.state.userByName(username);
    if (user == nullptr || !user->isActive || user->password != password) {
        auto text = "Unable to log in with provided credentials.";
        return jsonResponse(Json{{"non_field_errors", Json::array({text})}}, 400);
    }
    if (user->token.empty()) user->token = sha1Hex(username + std::to_string(context.state.takeId("tokens")));
    return jsonResponse(Json{{"token", user->token}});
}

Response listUsers(Context& context) {
    auto ids = sortedByName(context.state.users, [](const User& user) { return user.username; });
    return pagedResponse(context, ids, [&](std::string& to, Id id) {
        to += textOf(userJson(context.state, context.state.users.at(id)));
    });
}

Response createUser(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    User user;
    readUser(body, context.state, user);
    if (body.failed()) return body.errors();
    user.id = context.state.takeId("users");
    user.dateJoined = context.state.now();
    const auto& stored = context.state.users[user.id] = user;
    context.state.changed();
    return jsonResponse(userJson(context.state, stored), 201);
}

Response getUser(Context& context) {
    const auto* user = findUser(context);
    return user == nullptr ? noMatch("User") : jsonResponse(userJson(context.state, *user));
}

Response updateUser(Context& context) {
    auto* user = findUser(context);
    if (user == nullptr) return noMatch("User");
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, context.request.method == "PATCH");
    auto changed = *user;
    readUser(body, context.state, changed);
    if (body.failed()) return body.errors();
    *user = std::move(changed);
    context.state.changed();
    return jsonResponse(userJson(context.state, *user));
}

Response deleteUser(Context& context) {
    const auto* user = findUser(context);
    if (user == nullptr) return noMatch("User");
    removeUser(context.state, user->id);
    return noContent();
}

void removeUser(State& state, Id id) {
    forAllPermissions(state, [id](OptionalId& owner, ObjectPermissions& permissions) {
        if (owner == id) owner.reset();
        std::erase(permissions.viewUsers, id);
        std::erase(permissions.changeUsers, id);
    });
    for (auto& [documentId, document] : state.documents) {
        for (auto& note : document.notes) {
            if (note.user == id) note.user.reset();
        }
    }
    for (auto& [taskId, task] : state.tasks) {
        if (task.owner == id) task.owner.reset();
    }
    for (auto& [viewId, view] : state.savedViews) {
        view.onDashboardOf.erase(id);
        view.inSidebarOf.erase(id);
    }
    state.users.erase(id);
    state.changed();
}

Response listGroups(Context& context) {
    auto ids = sortedByName(context.state.groups, [](const Group& group) { return group.name; });
    return pagedResponse(context, ids,
                         [&](std::string& to, Id id) { to += textOf(groupJson(context.state.groups.at(id))); });
}

Response createGroup(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    Group group;
    readGroup(body, context.state, group);
    if (body.failed()) return body.errors();
    group.id = context.state.takeId("groups");
    context.state.groups[group.id] = group;
    context.state.changed();
    return jsonResponse(groupJson(group), 201);
}

Response getGroup(Context& context) {
    const auto* group = findGroup(context);
    return group == nullptr ? noMatch("Group") : jsonResponse(groupJson(*group));
}

Response updateGroup(Context& context) {
    auto* group = findGroup(context);
    if (group == nullptr) return noMatch("Group");
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, context.request.method == "PATCH");
    auto changed = *group;
    readGroup(body, context.state, changed);
    if (body.failed()) return body.errors();
    *group = std::move(changed);
    context.state.changed();
    return jsonResponse(groupJson(*group));
}

Response deleteGroup(Context& context) {
    const auto* group = findGroup(context);
    if (group == nullptr) return noMatch("Group");
    removeGroup(context.state, group->id);
    return noContent();
}

void removeGroup(State& state, Id id) {
    forAllPermissions(state, [id](OptionalId&, ObjectPermissions& permissions) {
        std::erase(permissions.viewGroups, id);
        std::erase(permissions.changeGroups, id);
    });
    for (auto& [userId, user] : state.users)
        std::erase(user.groups, id);
    state.groups.erase(id);
    state.changed();
}

Response getProfile(Context& context) {
    const auto& user = *context.user;
    auto json = userJson(context.state, user);
    return jsonResponse(Json{{"email", user.email},
                             {"password", json["password"]},
                             {"first_name", user.firstName},
                             {"last_name", user.lastName},
                             {"auth_token", user.token},
                             {"social_accounts", Json::array()},
                             {"has_usable_password", true},
                             {"is_mfa_enabled", false}});
}

Response renewToken(Context& context) {
    auto& user = context.state.users.at(context.user->id);
    user.token = sha1Hex(user.username + std::to_string(context.state.takeId("tokens")));
    return jsonResponse(user.token);
}

} // namespace ledgerfinch::support
