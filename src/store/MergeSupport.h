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
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

/// What the merges of all kinds share. Everything here runs inside the context's queue.
namespace ledgerfinch::merge {

/// Look-ups of one record's merge. A failure of the store is remembered: such a record must not be saved, for "none"
/// was only a guess.
class Finder {
public:
    explicit Finder(ManagedObjectContext& context) : m_context(context) {}

    template <class T>
    Ref<T> find(std::int64_t id) {
        auto found = m_context.findWithID<T>(id);
        if (found) return std::move(*found);
        fail(found.error());
        return nullptr;
    }
    /// The object with this server id, made when there is none.
    template <class T>
    Ref<T> findOrInsert(std::int64_t id) {
        auto object = find<T>(id);
        if (!object) object = m_context.insert<T>();
        object->setId(id);
        return object;
    }
    void fail(Error error) { m_failure = std::move(error); }

    [[nodiscard]] ManagedObjectContext& context() const { return m_context; }
    [[nodiscard]] const std::optional<Error>& failure() const { return m_failure; }

private:
    ManagedObjectContext& m_context;
    std::optional<Error> m_failure;
};

/// The local objects with these ids; those without one are passed over. An absent list is an empty one.
template <class T>
std::vector<Ref<T>> resolve(Finder& finder, const std::optional<std::vector<std::int64_t>>& ids) {
    std::vector<Ref<T>> found;
    if (!ids) return found;
    found.reserve(ids->size());
    for (const auto id : *ids)
        if (auto object = finder.find<T>(id)) found.push_back(std::move(object));
    return found;
}

/// Who may see and change a record, as far as users and groups are known here.
struct Access {
    std::vector<Ref<CD_User>> viewUsers;
    std::vector<Ref<CD_Group>> viewGroups;
    std::vector<Ref<CD_User>> changeUsers;
    std::vector<Ref<CD_Group>> changeGroups;
};
Access resolveAccess(Finder& finder, const std::optional<Document_Permissions>& permissions);

/// Whether a member without a value was delivered as null, rather than not at all. A record that carries nothing of
/// what was delivered counts as complete.
bool deliveredAsNull(const std::string& raw, std::string_view member);

/// A server's moment, or, from servers that send no time, the day's start in the device's time zone.
std::optional<Timestamp> parseServerDate(std::string_view text);

/// Nothing can be written any more, so that the rest of a list needs no try.
bool endsTheList(const Error& error);

/// Runs the work in the context if nothing else pends there, and else in one of its own over the same store: what
/// somebody is editing is neither saved nor undone by it, and a failure leaves nothing of the work behind.
template <class Work>
auto besideEdits(ManagedObjectContext& context, Work work) {
    if (!context.hasChanges()) return work(context);
    const auto apart = context.container().newBackgroundContext();
    std::optional<decltype(work(*apart))> result;
    apart->performAndWait([&] { result = work(*apart); });
    return std::move(*result);
}

/// One record in a context where nothing else pends: written, saved, and taken back when it can't be saved. A record
/// whose row another process deleted meanwhile is written once more.
template <class Write>
Result<ObjectID> writeAndSave(ManagedObjectContext& context, Write& write) {
    for (int attempt = 0; attempt < 2; ++attempt) {
        Finder finder(context);
        const auto object = write(finder);
        const Result<void> saved = finder.failure() ? Result<void>(*finder.failure()) : context.save();
        if (!saved) {
            context.rollback();
            return saved.error();
        }
        if (!object) return ObjectID{};
        if (!object->isDeleted()) return object->objectID();
    }
    return Error{"The record was deleted meanwhile"};
}

/// The merge of one record. `write` gives the object, or null for none; everything that it touches belongs to the
/// finder's context.
template <class Write>
Result<ObjectID> mergeRecord(ManagedObjectContext& context, const Logger& log, std::string_view failureFormat,
                             Write write) {
    auto merged = besideEdits(context, [&](ManagedObjectContext& clean) { return writeAndSave(clean, write); });
    if (!merged)
        log.error(failureFormat, merged.error().message);
    else if (const auto object = context.hasChanges() ? context.object(*merged) : nullptr)
        context.refresh(*object, MergeChanges::Yes); // saved beside this context: its edits stay on top
    return merged;
}

/// What the single-record operations answer with.
template <class Merge>
ObjectID mergeAndWait(const ContextRef& context, Merge merge) {
    ObjectID saved;
    context->performAndWait([&] {
        if (const auto merged = merge(*context)) saved = *merged;
    });
    return saved;
}

/// The documents that a server delivered under this id; more than one only in a store that went through a mishap.
std::vector<Ref<CD_Document>> deliveredDocuments(Finder& finder, std::int64_t id);

/// An id that no document has: after the highest, as long as there is one.
Result<std::int64_t> freeDocumentId(ManagedObjectContext& context);

/// False while the whole list of such records is missing, as for an account that may not see it. Then every document is
/// delivered again once the list comes, and none is noted by itself.
template <class T>
bool listCame(ManagedObjectContext& context) {
    return !repair::isNoted(context, T::kEntityName, RepairList::kListMissing, RepairList::kUnresolved);
}

/// The three texts with which a kind of object logs its removals.
struct RemovalTexts {
    std::string_view absent;
    std::string_view counting;
    std::string_view failure;
};

/// The documents that bear an attribute are to be linked again: should the attribute come back, they get it back.
template <class T>
void noteBearers(ManagedObjectContext& context, const T& attribute, const Logger& log) {
    if constexpr (requires { attribute.ofDocument(); }) {
        std::vector<std::int64_t> bearers;
        for (const auto& document : attribute.ofDocument())
            if (document->server_shadow()) bearers.push_back(document->id());
        const auto saved = besideEdits(context, [&](ManagedObjectContext& clean) {
            for (const auto id : bearers)
                repair::put(clean, CD_Document::kEntityName, id, RepairList::kUnresolved);
            auto result = clean.save();
            if (!result) clean.rollback();
            return result;
        });
        if (!saved) log.error("Couldn't note a repair: %{public}s", saved.error().message);
    }
}

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
            noteBearers(*context, *object, log);
            if (handler.deleteObject(object->objectID(), context))
                ++removed;
            else if (handler.writeFailure().reason())
                return; // as the others would fail too
        }
    });
    return removed;
}

/// So many records in a row that can't be saved are the store's fault, whatever it says.
constexpr std::size_t kFailuresInARow = 10;

/// Second step: every record in order, each in a block of its own, so that other work of the context can come between.
template <class Record, class Merge>
void mergeEach(CoreDataHandler& handler, const ContextRef& context, const Logger& log,
               const std::vector<Record>& records, Delivery delivery, MergeOutcome& outcome, Merge mergeOne) {
    if (delivery == Delivery::Absent) return;
    std::size_t failedInARow = 0;
    for (std::size_t index = 0; index < records.size(); ++index) {
        std::optional<Error> error;
        context->performAndWait([&] {
            if (const auto merged = mergeOne(*context, records[index]); !merged) error = merged.error();
        });
        if (!error) {
            ++outcome.saved;
            failedInARow = 0;
            continue;
        }
        ++outcome.failed;
        if (!endsTheList(*error) && ++failedInARow < kFailuresInARow) continue;
        outcome.failed = records.size() - outcome.saved;
        log.error("The store can't be written: %{public}s", error->message);
        handler.writeFailure().note(*error);
        return;
    }
}

/// The owner that the record names, when it is known here.
template <class Object, class Record>
void writeOwner(Finder& finder, Object& object, const Record& record, Authority authority) {
    const auto owner = record.owner ? finder.find<CD_User>(*record.owner) : nullptr;
    if (owner || (authority == Authority::ServerWins && (record.owner || deliveredAsNull(record.raw, "owner"))))
        object.setOwner(owner);
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

/// The same; a server that has the last word also clears with null.
template <class Object, class Argument, class Source, class Record>
void take(Object& object, void (Object::*setter)(Argument), const std::optional<Source>& value, const Record& record,
          std::string_view member, Authority authority) {
    if (value)
        (object.*setter)(*value);
    else if (authority == Authority::ServerWins && deliveredAsNull(record.raw, member))
        (object.*setter)(std::remove_cvref_t<Argument>{});
}

} // namespace ledgerfinch::merge
