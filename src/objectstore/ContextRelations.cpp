// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ContextPrivate.h"

#include <algorithm>
#include <cassert>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

bool eraseOne(std::vector<std::int64_t>& rows, std::int64_t row) {
    const auto found = std::find(rows.begin(), rows.end(), row);
    if (found == rows.end()) return false;
    rows.erase(found);
    return true;
}

void insertSorted(std::vector<std::int64_t>& rows, std::int64_t row) {
    const auto place = std::lower_bound(rows.begin(), rows.end(), row);
    if (place == rows.end() || *place != row) rows.insert(place, row);
}

void eraseSorted(std::vector<std::int64_t>& rows, std::int64_t row) {
    const auto place = std::lower_bound(rows.begin(), rows.end(), row);
    if (place != rows.end() && *place == row) rows.erase(place);
}

} // namespace

const SetDelta* ContextEngine::delta(std::size_t entity, std::size_t relation, std::int64_t row) const {
    if (deltas.empty()) return nullptr;
    const auto found = deltas.find({static_cast<std::uint32_t>(entity), static_cast<std::uint32_t>(relation), row});
    return found == deltas.end() ? nullptr : &found->second;
}

void ContextEngine::shiftDelta(const SetKey& key, std::int64_t member, bool add) {
    SetDelta& change = deltas[key];
    if (!eraseOne(add ? change.removed : change.added, member)) (add ? change.added : change.removed).push_back(member);
    if (change.empty()) deltas.erase(key);
}

/// Notes a change at one end, and carries it into the loaded set there, if there is one.
void ContextEngine::link(const SetKey& key, std::int64_t member, bool add) {
    shiftDelta(key, member, add);
    const auto object = alive(key.entity, key.row);
    if (!object) return;
    if (auto* rows = stateOf(*object).set(key.relation)) {
        if (add)
            insertSorted(*rows, member);
        else
            eraseSorted(*rows, member);
    }
    touch(*object);
}

void ContextEngine::linkPair(std::size_t entity, std::size_t relationIndex, std::int64_t row, std::int64_t member,
                             bool add) {
    const Relation& relation = sql[entity].entity->relations[relationIndex];
    link({static_cast<std::uint32_t>(entity), static_cast<std::uint32_t>(relationIndex), row}, member, add);
    link({static_cast<std::uint32_t>(relation.target), static_cast<std::uint32_t>(relation.inverse), member}, row, add);
}

std::optional<std::vector<std::int64_t>> ContextEngine::queryMembers(std::size_t entity, std::size_t relation,
                                                                     std::int64_t row) {
    std::vector<std::int64_t> rows;
    const RelationSql& relationSql = sql[entity].relations[relation];
    sqlite::Database* db = database();
    if (!db) {
        readFailed("Reading a relation failed", databaseError);
        return std::nullopt;
    }
    {
        sqlite::Use statement(db->statement(relationSql.members.slot, relationSql.members.text));
        int code = SQLITE_ERROR;
        if (statement) {
            statement->bind(1, row);
            while ((code = statement->step()) == SQLITE_ROW)
                rows.push_back(statement->integer(0));
        }
        if (code != SQLITE_DONE) {
            readFailed("Reading a relation failed", db->lastError(sql[entity].entity->name));
            return std::nullopt;
        }
    }
    if (const SetDelta* change = delta(entity, relation, row)) {
        for (const std::int64_t member : change->removed)
            eraseSorted(rows, member);
        for (const std::int64_t member : change->added)
            insertSorted(rows, member);
    }
    return rows;
}

std::vector<std::int64_t> ContextEngine::members(ManagedObject& object, std::size_t relation) {
    ObjectState& state = stateOf(object);
    if (const auto* rows = state.set(relation)) return *rows;
    const ObjectID& id = object.objectID();
    if (state.gone) return {};
    std::vector<std::int64_t> rows;
    if (state.inserted) {
        if (const SetDelta* change = delta(id.entity, relation, id.row)) rows = change->added;
        std::sort(rows.begin(), rows.end());
    } else {
        auto found = queryMembers(id.entity, relation, id.row);
        if (!found) return {};
        rows = std::move(*found);
    }
    state.sets.push_back({static_cast<std::uint32_t>(relation), rows});
    return rows;
}

std::vector<std::int64_t> ContextEngine::visibleMembers(ManagedObject& object, std::size_t relation) {
    std::vector<std::int64_t> rows = members(object, relation);
    if (removedCount > 0) {
        const std::size_t target = object.entity().relations[relation].target;
        std::erase_if(rows, [&](std::int64_t row) { return isRemoved(target, row); });
    }
    return rows;
}

std::size_t ContextEngine::countMembers(ManagedObject& object, std::size_t relation) {
    const ObjectState& state = stateOf(object);
    const ObjectID& id = object.objectID();
    if (state.inserted || state.gone || removedCount > 0 || delta(id.entity, relation, id.row) ||
        object.entity().relations[relation].storage == RelationStorage::Column)
        return object.toManyIDs(relation).size();
    if (const auto* rows = stateOf(object).set(relation)) return rows->size();
    sqlite::Database* db = database();
    if (!db) return 0;
    const SlotSql& count = sql[id.entity].relations[relation].count;
    sqlite::Use statement(db->statement(count.slot, count.text));
    if (!statement) return 0;
    statement->bind(1, id.row);
    return statement->step() == SQLITE_ROW ? static_cast<std::size_t>(statement->integer(0)) : 0;
}

bool ContextEngine::isMember(ManagedObject& object, std::size_t relationIndex, std::int64_t member) {
    const ObjectID& id = object.objectID();
    const Relation& relation = object.entity().relations[relationIndex];
    ObjectState& state = stateOf(object);
    if (state.inserted || state.set(relationIndex)) {
        const auto rows = members(object, relationIndex);
        return std::binary_search(rows.begin(), rows.end(), member);
    }
    const SetDelta* change = delta(id.entity, relationIndex, id.row);
    if (change && std::find(change->added.begin(), change->added.end(), member) != change->added.end()) return true;
    if (change && std::find(change->removed.begin(), change->removed.end(), member) != change->removed.end())
        return false;
    // One pair is looked up without reading the whole set, which may be long.
    const RelationSql& relationSql = sql[id.entity].relations[relationIndex];
    if (relation.storage == RelationStorage::JoinTable) {
        sqlite::Database* db = database();
        if (!db) {
            readFailed("Reading a relation failed", databaseError);
            return false;
        }
        sqlite::Use statement(db->statement(relationSql.hasPair.slot, relationSql.hasPair.text));
        int code = SQLITE_ERROR;
        if (statement) {
            statement->bind(1, id.row);
            statement->bind(2, member);
            code = statement->step();
        }
        if (code != SQLITE_ROW && code != SQLITE_DONE)
            readFailed("Reading a relation failed", db->lastError(relation.table));
        return code == SQLITE_ROW;
    }
    const auto other = materialize(relation.target, member);
    return toOneRow(*other, relation.inverse) == id.row;
}

std::int64_t ContextEngine::toOneRow(ManagedObject& object, std::size_t relationIndex) {
    const Relation& relation = object.entity().relations[relationIndex];
    const ObjectState& state = stateOf(object);
    if (relation.storage == RelationStorage::Column) {
        ensureLoaded(object);
        const std::int64_t row =
            state.row(static_cast<std::size_t>(sql[object.objectID().entity].columnOfRelation[relationIndex]));
        return row != 0 && isRemoved(relation.target, row) ? 0 : row;
    }
    const auto rows = visibleMembers(object, relationIndex);
    return rows.empty() ? 0 : rows.front();
}

bool ContextEngine::canRelate(const ManagedObject& object, const ManagedObject& target, std::size_t relation) const {
    const bool fits =
        target.context() == object.context() && target.objectID().entity == object.entity().relations[relation].target;
    assert(fits && "a relation joins objects of one context");
    const ObjectState& state = stateOf(target);
    return fits && !state.gone && !state.removed;
}

void ContextEngine::changeColumn(ManagedObject& object, std::size_t relationIndex, std::int64_t row) {
    if (!ensureLoaded(object)) return;
    const ObjectID& id = object.objectID();
    const Relation& relation = object.entity().relations[relationIndex];
    const auto column = static_cast<std::size_t>(sql[id.entity].columnOfRelation[relationIndex]);
    const std::int64_t old = stateOf(object).row(column);
    if (old == row) return;
    const Relation& inverse = sql[relation.target].entity->relations[relation.inverse];
    if (row != 0 && inverse.description.cardinality == Cardinality::ToOne) {
        // One to one: whoever has the target loses it.
        const auto target = materialize(relation.target, row);
        for (const std::int64_t holder : members(*target, relation.inverse))
            if (holder != id.row) changeColumn(*materialize(id.entity, holder), relationIndex, 0);
    }
    setColumn(object, column, row);
    const SetKey key{static_cast<std::uint32_t>(relation.target), static_cast<std::uint32_t>(relation.inverse), 0};
    if (old != 0) link({key.entity, key.relation, old}, id.row, false);
    if (row != 0) link({key.entity, key.relation, row}, id.row, true);
}

/// Adds or removes one member that wasn't, or was, one.
void ContextEngine::changeMember(ManagedObject& object, std::size_t relationIndex, std::int64_t member, bool add) {
    const ObjectID& id = object.objectID();
    const Relation& relation = object.entity().relations[relationIndex];
    if (relation.storage == RelationStorage::JoinTable)
        linkPair(id.entity, relationIndex, id.row, member, add);
    else
        changeColumn(*materialize(relation.target, member), relation.inverse, add ? id.row : 0);
}

bool ContextEngine::relationChanged(const ManagedObject& object, std::size_t relationIndex) const {
    const ObjectID& id = object.objectID();
    const ObjectState& state = stateOf(object);
    const Relation& relation = object.entity().relations[relationIndex];
    if (relation.storage != RelationStorage::Column) {
        const SetDelta* change = delta(id.entity, relationIndex, id.row);
        return change != nullptr;
    }
    const auto column = static_cast<std::size_t>(sql[id.entity].columnOfRelation[relationIndex]);
    if (state.inserted) return state.row(column) != 0;
    return state.original(column) != nullptr || isRemoved(relation.target, state.row(column));
}

} // namespace ledgerfinch
