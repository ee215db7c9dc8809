// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "platform/Dates.h"
#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

#include <algorithm>
#include <utility>

namespace ledgerfinch {
namespace {

constexpr merge::RemovalTexts kUserRemoval{"Error obtaining users", "users to delete: %s",
                                           "error determining outdated users: %@"};
// Groups share two texts with users.
constexpr merge::RemovalTexts kGroupRemoval{"Error obtaining users", "groups to delete: %s",
                                            "error determining outdated users: %@"};

/// Fresh permission objects in place of the present ones; none when the texts are the same.
std::optional<std::vector<Ref<CD_Permission>>> replacement(ManagedObjectContext& context,
                                                           const std::vector<Ref<CD_Permission>>& present,
                                                           std::vector<std::string> texts) {
    std::vector<std::string> before;
    for (const auto& permission : present)
        before.push_back(permission->stringRepresentation().value_or(""));
    std::sort(before.begin(), before.end());
    std::sort(texts.begin(), texts.end());
    if (before == texts) return std::nullopt;
    for (const auto& permission : present)
        context.remove(*permission);
    std::vector<Ref<CD_Permission>> fresh;
    for (auto& text : texts) {
        fresh.push_back(context.insert<CD_Permission>());
        fresh.back()->setStringRepresentation(std::move(text));
    }
    return fresh;
}

/// The list to write: absent leaves the local one alone; null is an empty one where the server has the last word.
template <class List>
std::optional<List> toWrite(const std::optional<List>& list, const std::string& raw, std::string_view member,
                            Authority authority) {
    if (list || authority != Authority::ServerWins || !merge::deliveredAsNull(raw, member)) return list;
    return List{};
}

Result<ObjectID> mergeUser(ManagedObjectContext& context, const User& record, Authority authority, const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save storage path %@", [&](merge::Finder& finder) {
        const auto user = finder.findOrInsert<CD_User>(record.id);
        merge::take(*user, &CD_User::setUsername, record.username, record, "username", authority);
        merge::take(*user, &CD_User::setEmail, record.email, record, "email", authority);
        merge::take(*user, &CD_User::setPassword, record.password, record, "password", authority);
        merge::take(*user, &CD_User::setFirst_name, record.first_name, record, "first_name", authority);
        merge::take(*user, &CD_User::setLast_name, record.last_name, record, "last_name", authority);
        if (record.date_joined) user->setDate_joined(dates::parseDateTime(*record.date_joined));
        merge::take(*user, &CD_User::setIs_staff, record.is_staff, record, "is_staff", authority);
        merge::take(*user, &CD_User::setIs_active, record.is_active, record, "is_active", authority);
        merge::take(*user, &CD_User::setIs_superuser, record.is_superuser, record, "is_superuser", authority);
        if (const auto groups = toWrite(record.groups, record.raw, "groups", authority))
            user->setGroups(merge::resolve<CD_Group>(finder, groups));
        if (auto texts = toWrite(record.user_permissions, record.raw, "user_permissions", authority))
            if (const auto fresh = replacement(finder.context(), user->user_permissions(), std::move(*texts)))
                user->setUser_permissions(*fresh);
        if (auto texts = toWrite(record.inherited_permissions, record.raw, "inherited_permissions", authority))
            if (const auto fresh = replacement(finder.context(), user->inherited_permissions(), std::move(*texts)))
                user->setInherited_permissions(*fresh);
        setServerShadow(*user, record.raw);
        merge::finishRepair<CD_User>(finder.context(), record.id, authority);
        return user;
    });
}

Result<ObjectID> mergeGroup(ManagedObjectContext& context, const PaperlessGroup& record, Authority authority,
                            const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save storage path %@", [&](merge::Finder& finder) {
        const auto group = finder.findOrInsert<CD_Group>(record.id);
        merge::take(*group, &CD_Group::setName, record.name, record, "name", authority);
        if (auto texts = toWrite(record.permissions, record.raw, "permissions", authority))
            if (const auto fresh = replacement(finder.context(), group->permissions(), std::move(*texts)))
                group->setPermissions(*fresh);
        setServerShadow(*group, record.raw);
        merge::finishRepair<CD_Group>(finder.context(), record.id, authority);
        return group;
    });
}

} // namespace

MergeOutcome CoreDataHandler::saveUsers(const std::vector<User>& records, Delivery delivery, ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed = merge::removeOutdated<CD_User>(*this, context, m_log, records, delivery, kUserRemoval,
                                                     [](const CD_User& user) { return user.first_name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const User& record) {
                         return mergeUser(entered, record, Authority::Merge, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveUser(const User& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeUser(entered, record, authority, m_log);
    });
}

MergeOutcome CoreDataHandler::saveGroups(const std::vector<PaperlessGroup>& records, Delivery delivery,
                                         ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed = merge::removeOutdated<CD_Group>(*this, context, m_log, records, delivery, kGroupRemoval,
                                                      [](const CD_Group& group) { return group.name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const PaperlessGroup& record) {
                         return mergeGroup(entered, record, Authority::Merge, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveGroup(const PaperlessGroup& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeGroup(entered, record, authority, m_log);
    });
}

} // namespace ledgerfinch
