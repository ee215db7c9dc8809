// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObjectContext.h"
#include "platform/Logger.h"
#include "records/Permissions.h"
#include "store/CoreDataHandler.h"
#include "store/RepairEntries.h"
#include "store/RepairList.h"
#include "store/entities/Entities.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

/// What the merges of all kinds share. Everything here runs inside the context's queue.
namespace ledgerfinch::merge {

/// The object with this server id, made when there is none.
template <class T>
Ref<T> findOrInsert(ManagedObjectContext& context, std::int64_t id) {
    auto object = context.firstWithID<T>(id);
    if (!object) object = context.insert<T>();
    object->setId(id);
    return object;
}

/// The local objects with these ids; those without one are passed over. An absent list is an empty one.
template <class T>
std::vector<Ref<T>> resolve(ManagedObjectContext& context, const std::optional<std::vector<std::int64_t>>& ids) {
    std::vector<Ref<T>> found;
    if (!ids) return found;
    found.reserve(ids->size());
    for (const auto id : *ids)
        if (auto object = context.firstWithID<T>(id)) found.push_back(std::move(object));
    return found;
}

/// Who may see and change a record, as far as users and groups are known here.
struct Access {
    std::vector<Ref<CD_User>> viewUsers;
    std::vector<Ref<CD_Group>> viewGroups;
    std::vector<Ref<CD_User>> changeUsers;
    std::vector<Ref<CD_Group>> changeGroups;
};
Access resolveAccess(ManagedObjectContext& context, const std::optional<Document_Permissions>& permissions);

/// Whether a member without a value was delivered as null, rather than not at all. A record that carries nothing of
/// what was delivered counts as complete.
bool deliveredAsNull(const std::string& raw, std::string_view member);

/// A server's moment, or, from servers that send no time, the day's start in the device's time zone.
std::optional<Timestamp> parseServerDate(std::string_view text);

/// One save, and what is logged when it fails; the changes stay pending.
bool save(ManagedObjectContext& context, const Logger& log, std::string_view failureFormat);

/// The three texts with which a kind of object logs its removals.
struct RemovalTexts {
    std::string_view absent;
    std::string_view counting;
    std::string_view failure;
};

/// First step of every whole list: what a complete list doesn't name is deleted, each object with a save of its own.
template <class T, class Record, class NameOf>
std::size_t removeOutdated(CoreDataHandler& handler, const ContextRef& context, const Logger& log,
                           const std::vector<Record>& records, Delivery delivery, const RemovalTexts& texts,
                           NameOf nameOf) {
    if (delivery == Delivery::Absent) log.error(texts.absent);
    if (delivery != Delivery::Complete) return 0;
    std::unordered_set<std::int64_t> delivered;
    for (const auto& record : records)
        delivered.insert(record.id);
    std::size_t removed = 0;
    context->performAndWait([&] {
        const auto objects = context->fetch<T>(FetchRequest{});
        if (!objects) {
            log.error(texts.failure, objects.error().message);
            return;
        }
        for (const auto& object : *objects) {
            if (delivered.contains(object->id())) continue;
            log.debug(texts.counting, nameOf(*object).value_or("none"));
            if (handler.deleteObject(object->objectID(), context)) ++removed;
        }
    });
    return removed;
}

/// Second step: every record in order, each in a block of its own, so that other work of the context can come between.
template <class Record, class Save>
void saveEach(const std::vector<Record>& records, Delivery delivery, MergeOutcome& outcome, Save saveOne) {
    if (delivery == Delivery::Absent) return;
    for (const auto& record : records)
        ++(saveOne(record) ? outcome.saved : outcome.failed);
}

/// The owner that the record names, when it is known here.
template <class Object, class Record>
void writeOwner(ManagedObjectContext& context, Object& object, const Record& record, Authority authority) {
    if (record.owner) {
        if (const auto owner = context.firstWithID<CD_User>(*record.owner)) object.setOwner(owner);
    } else if (authority == Authority::ServerWins && deliveredAsNull(record.raw, "owner")) {
        object.setOwner(nullptr);
    }
}

/// The four sets of an attribute, each as a whole.
template <class Object>
void writeAccess(Object& object, const Access& access) {
    object.setViewable_by_users(access.viewUsers);
    object.setViewable_by_groups(access.viewGroups);
    object.setEditable_by_users(access.changeUsers);
    object.setEditable_by_groups(access.changeGroups);
}

/// A record that was fetched because a write of it was refused is mended with this save.
template <class T>
void finishRepair(ManagedObjectContext& context, std::int64_t id, Authority authority) {
    if (authority == Authority::ServerWins) repair::drop(context, T::kEntityName, id, RepairList::kRefused);
}

/// Sets an attribute only from a value that was delivered.
template <class Object, class Argument, class Source>
void setIfPresent(Object& object, void (Object::*setter)(Argument), const std::optional<Source>& value) {
    if (value) (object.*setter)(*value);
}

} // namespace ledgerfinch::merge
