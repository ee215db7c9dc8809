// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/FetchRequest.h"
#include "objectstore/ManagedObject.h"
#include "platform/Result.h"
#include "platform/UserDefaults.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace ledgerfinch {

class PersistentContainer;

enum class MergePolicy {
    ByPropertyStoreTrump, ///< on a conflict the value in the store stays, property by property
    ByPropertyObjectTrump ///< on a conflict this context's changed value wins, property by property
};
enum class ContextQueue {
    Main,   ///< belongs to the main thread
    Private ///< belongs to whoever is inside perform or performAndWait, one at a time
};
enum class MergeChanges { No, Yes };

/// A scratchpad of objects over one store. Everything but perform, performAndWait and the constants is called inside
/// its queue: on the main thread for a Main context, inside perform/performAndWait for a Private one (asserted in debug
/// builds).
class ManagedObjectContext {
public:
    ~ManagedObjectContext();
    ManagedObjectContext(const ManagedObjectContext&) = delete;
    ManagedObjectContext& operator=(const ManagedObjectContext&) = delete;

    [[nodiscard]] PersistentContainer& container() const;
    [[nodiscard]] const Model& model() const;

    void setMergePolicy(MergePolicy policy);
    /// Saves of other contexts and processes reach the loaded objects of this one: unchanged properties take the new
    /// values, unsaved changes stay.
    void setAutomaticallyMergesChangesFromParent(bool automatic);

    /// Queued; for a Private context on a thread of its own.
    void perform(std::function<void()> block);
    /// Runs the block in the queue and waits; nests. A Private context runs it on the calling thread, a Main one on the
    /// main thread.
    void performAndWait(const std::function<void()>& block);

    Ref<ManagedObject> insert(std::string_view entityName);
    template <class T>
    Ref<T> insert() {
        return std::static_pointer_cast<T>(insert(T::kEntityName));
    }

    /// Sees the pending changes of this context. A failure of the store comes as an error; nothing found is an empty
    /// list.
    Result<std::vector<Ref<ManagedObject>>> fetch(const FetchRequest& request);
    template <class T>
    Result<std::vector<Ref<T>>> fetch(FetchRequest request) {
        request.entity = T::kEntityName;
        auto found = fetch(request);
        if (!found) return found.error();
        std::vector<Ref<T>> typed;
        typed.reserve(found->size());
        for (auto& object : *found)
            typed.push_back(std::static_pointer_cast<T>(std::move(object)));
        return typed;
    }
    /// Only the ids: cheap for any length.
    Result<std::vector<ObjectID>> fetchIDs(const FetchRequest& request);
    Result<std::size_t> count(const FetchRequest& request);
    /// The highest value of an Int64 attribute; absent when there is no object.
    Result<std::optional<std::int64_t>> max(std::string_view entityName, std::string_view attributeName);
    /// The first object whose Int64 attribute "id" is this: what fetching "id = %d" gives, by the shortest way. Null
    /// when there is none or the store fails.
    Ref<ManagedObject> firstWithID(std::string_view entityName, std::int64_t id);
    template <class T>
    Ref<T> firstWithID(std::int64_t id) {
        return std::static_pointer_cast<T>(firstWithID(T::kEntityName, id));
    }
    /// The same for callers to whom "none" and "the store failed" differ: null means that there is none.
    Result<Ref<ManagedObject>> findWithID(std::string_view entityName, std::int64_t id);
    template <class T>
    Result<Ref<T>> findWithID(std::int64_t id) {
        auto found = findWithID(T::kEntityName, id);
        if (!found) return found.error();
        return std::static_pointer_cast<T>(std::move(*found));
    }

    /// The object with this id, as a fault if it isn't loaded; null for an id of another store. Doesn't look whether
    /// the row exists.
    Ref<ManagedObject> object(const ObjectID& id);
    /// Null when the row is gone as well.
    Ref<ManagedObject> existingObject(const ObjectID& id);

    /// Pending until the next save; delete rules apply at once inside this context.
    void remove(ManagedObject& object);

    [[nodiscard]] bool hasChanges() const;
    /// One transaction with everything pending. On failure the store is as before and everything is still pending.
    Result<void> save();
    /// Saves only this object (with the relations it changed); everything else stays pending.
    Result<void> saveOnly(ManagedObject& object);
    /// Everything pending is forgotten.
    void rollback();
    /// No: forgets changes and turns the object into a fault. Yes: reads the store and keeps unsaved changes on top. A
    /// pending insertion stays as it is.
    void refresh(ManagedObject& object, MergeChanges merge);
    /// Turns every unchanged object into a fault.
    void refreshAllUnchanged();

    /// After changes reached this context from elsewhere, or were saved by it; inside its queue.
    [[nodiscard]] Subscription onChange(std::function<void(const ChangeSet&)> callback);

private:
    friend class PersistentContainer;
    friend class ObjectStoreAccess;
    friend class ManagedObject;
    struct Private;
    explicit ManagedObjectContext(std::unique_ptr<Private> d);
    std::unique_ptr<Private> m_d;
};

} // namespace ledgerfinch
