// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ContainerPrivate.h"
#include "objectstore/ContextPrivate.h"
#include "objectstore/Values.h"

#include <algorithm>
#include <sqlite3.h>

namespace ledgerfinch {

void ObjectStoreAccess::attach(ManagedObject& object, const ObjectID& id, const Entity& entity,
                               ManagedObjectContext* context) {
    object.m_id = id;
    object.m_entity = &entity;
    object.m_context = context;
    object.m_state = std::make_unique<State>();
}

ObjectID ContextEngine::idOf(std::size_t entity, std::int64_t row) const {
    return {sharedBy(container).identity, static_cast<std::uint32_t>(entity), row};
}

sqlite::Database* ContextEngine::database() {
    if (connection) return connection.get();
    auto taken = sharedBy(container).takeConnection();
    if (!taken) {
        databaseError = taken.error();
        return nullptr;
    }
    connection = std::move(*taken);
    // A connection that another context had: that one's statements for updates stand under the same numbers.
    connection->forgetSlotsFrom(sql.slotCount());
    return connection.get();
}

void ContextEngine::readFailed(std::string_view what, const Error& error) {
    ++readFailures;
    lastReadFailure = error;
    sharedBy(container).log.error("%{public}s: %{public}s", what, error.message);
}

Ref<ManagedObject> ContextEngine::alive(std::size_t entity, std::int64_t row) const {
    const auto found = identity[entity].objects.find(row);
    return found == identity[entity].objects.end() ? nullptr : found->second.lock();
}

Ref<ManagedObject> ContextEngine::materialize(std::size_t entityIndex, std::int64_t row) {
    Identity& known = identity[entityIndex];
    auto& entry = known.objects[row];
    if (auto object = entry.lock()) return object;
    const Entity& entity = sql.model().entities()[entityIndex];
    Ref<ManagedObject> object = entity.make();
    ObjectStoreAccess::attach(*object, idOf(entityIndex, row), entity, self);
    entry = object;
    if (known.objects.size() >= known.sweepAt) {
        // Objects go without telling, on any thread; what they leave behind is swept now and then.
        std::erase_if(known.objects, [](const auto& pair) { return pair.second.expired(); });
        known.sweepAt = std::max<std::size_t>(256, known.objects.size() * 2);
    }
    return object;
}

Ref<ManagedObject> ContextEngine::insertObject(const Entity& entity) {
    const std::int64_t row = sharedBy(container).rows->next(entity.index);
    Ref<ManagedObject> object = materialize(entity.index, row);
    ObjectState& state = stateOf(*object);
    const EntitySql& entitySql = sql[entity.index];
    state.values.reserve(entitySql.columnCount());
    for (const auto& attribute : entity.attributes)
        state.values.push_back(values::initial(attribute.type));
    state.values.resize(entitySql.columnCount(), std::int64_t{0});
    state.loaded = true;
    state.inserted = true;
    touch(*object);
    return object;
}

void ContextEngine::touch(ManagedObject& object) {
    auto& slot = pending[object.objectID().entity][object.objectID().row];
    if (!slot) slot = object.shared_from_this();
}

bool ContextEngine::isRemoved(std::size_t entity, std::int64_t row) const {
    if (removedCount == 0) return false;
    const auto found = pending[entity].find(row);
    return found != pending[entity].end() && stateOf(*found->second).removed;
}

void ContextEngine::readColumns(ObjectState& state, const EntitySql& entitySql, const sqlite::Statement& statement,
                                int first) {
    const auto& attributes = entitySql.entity->attributes;
    state.version = statement.integer(first);
    state.values.resize(entitySql.columnCount());
    for (std::size_t column = 0; column < state.values.size(); ++column) {
        const int position = first + 1 + static_cast<int>(column);
        if (column < attributes.size())
            state.values[column] = values::read(statement, position, attributes[column].type);
        else
            state.values[column] = statement.integer(position); // NULL reads as 0
    }
    state.sets.clear();
    state.loaded = true;
}

ContextEngine::Load ContextEngine::load(ManagedObject& object) {
    ObjectState& state = stateOf(object);
    const EntitySql& entitySql = sql[object.objectID().entity];
    sqlite::Database* db = database();
    if (!db) {
        readFailed("Loading an object failed", databaseError);
        return Load::Failed;
    }
    sqlite::Use statement(db->statement(entitySql.load.slot, entitySql.load.text));
    if (!statement) {
        readFailed("Loading an object failed", db->lastError(object.entity().name));
        return Load::Failed;
    }
    statement->bind(1, object.objectID().row);
    const int code = statement->step();
    if (code == SQLITE_ROW) {
        readColumns(state, entitySql, *statement, 0);
        return Load::Done;
    }
    if (code == SQLITE_DONE) {
        state.gone = true;
        return Load::Gone;
    }
    readFailed("Loading an object failed", db->error(code, object.entity().name));
    return Load::Failed;
}

bool ContextEngine::ensureLoaded(ManagedObject& object) {
    const ObjectState& state = stateOf(object);
    if (state.gone) return false;
    return state.loaded || load(object) == Load::Done;
}

bool ContextEngine::setColumn(ManagedObject& object, std::size_t column, Value value) {
    ObjectState& state = stateOf(object);
    Value& current = state.values[column];
    if (current == value) return false;
    if (!state.inserted) {
        const auto entry = std::find_if(state.originals.begin(), state.originals.end(),
                                        [&](const auto& candidate) { return candidate.column == column; });
        if (entry == state.originals.end())
            state.originals.push_back({static_cast<std::uint32_t>(column), std::move(current)});
        else if (entry->value == value)
            state.originals.erase(entry);
    }
    current = std::move(value);
    touch(object);
    return true;
}

bool ContextEngine::isEffective(const ManagedObject& object) const {
    const ObjectState& state = stateOf(object);
    if (state.gone) return false;
    if (state.inserted || state.removed || !state.originals.empty()) return true;
    if (deltas.empty()) return false;
    for (std::size_t i = 0; i < object.entity().relations.size(); ++i)
        if (delta(object.objectID().entity, i, object.objectID().row)) return true;
    return false;
}

bool ContextEngine::hasEffectiveChanges() const {
    if (!deltas.empty()) return true;
    for (const auto& objects : pending)
        for (const auto& [row, object] : objects)
            if (isEffective(*object)) return true;
    return false;
}

/// Takes back every change of the object's columns and relations. The pending removals of a set come back, too: they
/// are changes of its members, or pairs.
void ContextEngine::undoChanges(ManagedObject& object) {
    ObjectState& state = stateOf(object);
    const ObjectID& id = object.objectID();
    const EntitySql& entitySql = sql[id.entity];
    const auto& relations = object.entity().relations;
    for (std::size_t i = 0; i < relations.size(); ++i) {
        const Relation& relation = relations[i];
        if (relation.storage == RelationStorage::Column) {
            const auto column = static_cast<std::size_t>(entitySql.columnOfRelation[i]);
            if (state.inserted)
                changeColumn(object, i, 0);
            else if (const Value* original = state.original(column))
                changeColumn(object, i, std::get<std::int64_t>(*original));
            continue;
        }
        const SetDelta* found = delta(id.entity, i, id.row);
        if (!found) continue;
        const SetDelta changes = *found;
        for (const bool wasAdded : {true, false}) {
            for (const std::int64_t member : wasAdded ? changes.added : changes.removed) {
                if (relation.storage == RelationStorage::JoinTable) {
                    linkPair(id.entity, i, id.row, member, !wasAdded);
                    continue;
                }
                const auto other = alive(relation.target, member);
                if (!other) continue;
                const auto column = static_cast<std::size_t>(sql[relation.target].columnOfRelation[relation.inverse]);
                const Value* original = stateOf(*other).original(column);
                changeColumn(*other, relation.inverse, original ? std::get<std::int64_t>(*original) : 0);
            }
        }
    }
    for (auto& entry : std::exchange(state.originals, {}))
        state.values[entry.column] = std::move(entry.value);
}

void ContextEngine::forgetPending(ManagedObject& object) {
    auto& objects = pending[object.objectID().entity];
    if (const auto found = objects.find(object.objectID().row); found != objects.end()) objects.erase(found);
}

void ContextEngine::removeObject(ManagedObject& object) {
    ObjectState& state = stateOf(object);
    if (state.removed || state.gone) return;
    const Ref<ManagedObject> keep = object.shared_from_this();
    if (!ensureLoaded(object)) {
        if (state.gone) return; // somebody else was quicker
    }
    std::vector<Ref<ManagedObject>> cascade;
    const auto& relations = object.entity().relations;
    for (std::size_t i = 0; i < relations.size(); ++i) {
        if (relations[i].description.deleteRule != DeleteRule::Cascade) continue;
        if (relations[i].storage == RelationStorage::Column) {
            if (const std::int64_t row = toOneRow(object, i)) cascade.push_back(materialize(relations[i].target, row));
        } else {
            for (const std::int64_t row : visibleMembers(object, i))
                cascade.push_back(materialize(relations[i].target, row));
        }
    }
    undoChanges(object);
    touch(object);
    if (state.inserted) {
        state.inserted = false;
        state.gone = true;
        forgetPending(object);
    } else {
        state.removed = true;
        ++removedCount;
    }
    for (const auto& member : cascade)
        removeObject(*member);
}

void ContextEngine::refreshObject(ManagedObject& object, MergeChanges mergeChanges) {
    ObjectState& state = stateOf(object);
    if (state.inserted || state.gone) return;
    const Ref<ManagedObject> keep = object.shared_from_this();
    if (mergeChanges == MergeChanges::Yes && !state.originals.empty()) {
        rebase(object);
        return;
    }
    if (mergeChanges == MergeChanges::No && !state.removed) {
        undoChanges(object);
        if (!isEffective(object)) forgetPending(object);
    }
    // The values stay for the case that the row has vanished by the next touch.
    state.loaded = false;
    state.sets.clear();
}

void ContextEngine::rollbackAll() {
    auto objects =
        std::exchange(pending, std::vector<std::unordered_map<std::int64_t, Ref<ManagedObject>>>(identity.size()));
    const auto forgotten = std::exchange(deltas, {});
    removedCount = 0;
    incompleteChange.reset();
    for (const auto& [key, change] : forgotten)
        if (const auto object = alive(key.entity, key.row)) stateOf(*object).dropSet(key.relation);
    for (auto& byRow : objects) {
        for (auto& [row, object] : byRow) {
            ObjectState& state = stateOf(*object);
            state.removed = false;
            if (std::exchange(state.inserted, false)) state.gone = true;
            for (auto& entry : std::exchange(state.originals, {}))
                state.values[entry.column] = std::move(entry.value);
        }
    }
}

} // namespace ledgerfinch
