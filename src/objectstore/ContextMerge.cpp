// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ContainerPrivate.h"
#include "objectstore/ContextPrivate.h"

#include <algorithm>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

void makeUnique(std::vector<ObjectID>& ids) {
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

/// Several saves in one set: an object is told of once, by what counts most.
void normalize(ChangeSet& changes) {
    makeUnique(changes.inserted);
    makeUnique(changes.updated);
    makeUnique(changes.deleted);
    const auto without = [](std::vector<ObjectID>& ids, const std::vector<ObjectID>& others) {
        std::erase_if(ids, [&](const ObjectID& id) { return std::binary_search(others.begin(), others.end(), id); });
    };
    without(changes.updated, changes.inserted);
    without(changes.updated, changes.deleted);
    without(changes.inserted, changes.deleted);
}

} // namespace

void ContextEngine::lookAround() {
    sqlite::Database* db = database();
    if (!db) return;
    sqlite::Database::Fingerprint now;
    const bool known = db->fingerprint(now);
    if (known && hasSeenCommit && now == seenCommit) return;
    // The fingerprint was taken before the look, so that a commit in between is looked for again.
    hasSeenCommit = sharedBy(container).pullRemote(*db) && known;
    seenCommit = now;
}

void ContextEngine::takeInbox(bool mayMerge) {
    if (!inbox->isEmpty()) {
        const ChangeSet arrived = inbox->take();
        forgetIds(arrived);
        if (inbox->mergesAutomatically.load(std::memory_order_relaxed)) append(deferred, arrived);
    }
    if (!mayMerge || merging || saving || deferred.empty()) return;
    ChangeSet changes = std::exchange(deferred, ChangeSet{});
    normalize(changes);
    merging = true;
    merge(changes);
    merging = false;
    notify(changes);
}

void ContextEngine::merge(const ChangeSet& changes) {
    const auto reload = [this](ManagedObject& object) {
        ObjectState& state = stateOf(object);
        if (state.inserted || state.gone) return;
        if (!state.originals.empty()) {
            rebase(object);
            return;
        }
        state.loaded = false;
        state.sets.clear();
    };
    if (changes.everything) {
        std::vector<Ref<ManagedObject>> all;
        for (const Identity& known : identity)
            for (const auto& [row, weak] : known.objects)
                if (auto object = weak.lock()) all.push_back(std::move(object));
        for (const auto& object : all)
            reload(*object);
        return;
    }
    for (const ObjectID& id : changes.deleted)
        if (const auto object = alive(id.entity, id.row)) markGone(*object);
    for (const auto* list : {&changes.inserted, &changes.updated})
        for (const ObjectID& id : *list)
            if (const auto object = alive(id.entity, id.row)) reload(*object);
}

/// Reads the store under the unsaved changes of an object.
void ContextEngine::rebase(ManagedObject& object) {
    ObjectState& state = stateOf(object);
    const ObjectID& id = object.objectID();
    const EntitySql& entitySql = sql[id.entity];
    std::vector<Value> mine = state.values;
    const auto originals = state.originals;
    switch (load(object)) {
    case Load::Gone:
        state.gone = false; // so that markGone sees it through
        markGone(object);
        return;
    case Load::Failed:
        return;
    case Load::Done:
        break;
    }
    state.originals.clear();
    const std::size_t attributes = object.entity().attributes.size();
    for (const auto& [column, base] : originals) {
        const Value stored = std::exchange(state.values[column], mine[column]);
        if (column >= attributes) {
            // The pending change was noted against the old stored owner; note it against the new one.
            const std::size_t relationIndex = entitySql.columnRelations[column - attributes];
            const Relation& relation = object.entity().relations[relationIndex];
            const auto shift = [&](const Value& end, bool add) {
                const std::int64_t row = std::get<std::int64_t>(end);
                if (row == 0) return;
                shiftDelta(
                    {static_cast<std::uint32_t>(relation.target), static_cast<std::uint32_t>(relation.inverse), row},
                    id.row, add);
                if (const auto other = alive(relation.target, row)) stateOf(*other).dropSet(relation.inverse);
            };
            shift(base, true);
            shift(mine[column], false);
            shift(stored, false);
            shift(mine[column], true);
        }
        if (stored != mine[column]) state.originals.push_back({column, stored});
    }
}

/// The row is gone: what was pending about the object goes with it, its last values stay.
void ContextEngine::markGone(ManagedObject& object) {
    ObjectState& state = stateOf(object);
    if (state.gone) return;
    const Ref<ManagedObject> keep = object.shared_from_this();
    if (std::exchange(state.removed, false)) --removedCount;
    undoChanges(object);
    state.gone = true;
    forgetPending(object);
}

void ContextEngine::notify(const ChangeSet& changes) {
    if (changes.empty()) return;
    std::vector<std::shared_ptr<const std::function<void(const ChangeSet&)>>> list;
    {
        const std::lock_guard guard(callbacks->mutex);
        for (const auto& [number, callback] : callbacks->list)
            list.push_back(callback);
    }
    for (const auto& callback : list)
        (*callback)(changes);
}

} // namespace ledgerfinch
