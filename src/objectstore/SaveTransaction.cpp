// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/SaveTransaction.h"

#include "objectstore/ContainerPrivate.h"
#include "objectstore/Values.h"

#include <algorithm>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

void bindColumn(sqlite::Statement& statement, int position, const EntitySql& entitySql, std::size_t column,
                const Value& value) {
    if (column >= entitySql.entity->attributes.size() && std::get<std::int64_t>(value) == 0)
        statement.bindNull(position);
    else
        values::bind(statement, position, value);
}

void makeUnique(std::vector<ObjectID>& ids) {
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
}

} // namespace

Result<void> SaveTransaction::run() {
    while (true) {
        reset();
        sqlite::Transaction transaction(m_database);
        int code = transaction.begin();
        if (code == SQLITE_OK) code = write();
        if (code == SQLITE_OK) code = transaction.commit();
        if (code == SQLITE_OK) return {};
        Error failure = m_database.error(code, "saving");
        transaction.rollback();
        const bool isForeignKey = code == SQLITE_CONSTRAINT_FOREIGNKEY;
        if (!isForeignKey || std::exchange(m_isCareful, true)) return failure;
    }
}

void SaveTransaction::reset() {
    m_outcomes.clear();
    m_releases.clear();
    m_gone.clear();
    m_neighbours.clear();
    m_deleted.clear();
    m_changes = {};
    m_rowsWritten = 0;
    m_hadConflict = false;
}

int SaveTransaction::write() {
    const std::int64_t before = m_database.totalChanges();
    for (const auto& object : m_plan.inserted)
        if (const int code = insert(*object); code != SQLITE_OK) return code;
    for (const auto& object : m_plan.updated)
        if (const int code = update(*object); code != SQLITE_OK) return code;
    if (const int code = releaseOthers(); code != SQLITE_OK) return code;
    for (const auto& pair : m_plan.pairs)
        if (const int code = writePair(pair); code != SQLITE_OK) return code;
    for (const auto& object : m_plan.removed)
        if (const int code = remove(object->objectID().entity, object->objectID().row); code != SQLITE_OK) return code;
    m_rowsWritten = static_cast<std::uint64_t>(m_database.totalChanges() - before);
    noteEndpoints();
    if (m_rowsWritten == 0) return SQLITE_OK;
    return sharedBy(m_engine.container).changeLog->write(m_database, m_changes);
}

bool SaveTransaction::isInsertedHere(std::size_t entity, std::int64_t row) const {
    const auto found = m_engine.pending[entity].find(row);
    if (found == m_engine.pending[entity].end() || !stateOf(*found->second).inserted) return false;
    return m_plan.everything ||
           std::binary_search(m_plan.inserted.begin(), m_plan.inserted.end(), found->second,
                              [](const auto& a, const auto& b) { return a->objectID() < b->objectID(); });
}

int SaveTransaction::rowExists(std::size_t entity, std::int64_t row, bool& exists) {
    exists = isInsertedHere(entity, row);
    if (exists) return SQLITE_OK;
    const SlotSql& text = m_engine.sql[entity].exists;
    sqlite::Use statement(m_database.statement(text.slot, text.text));
    if (!statement) return m_database.lastCode();
    statement->bind(1, row);
    const int code = statement->step();
    exists = code == SQLITE_ROW;
    return code == SQLITE_ROW || code == SQLITE_DONE ? SQLITE_OK : code;
}

/// To-one columns whose target somebody else deleted meanwhile become empty.
int SaveTransaction::dropDanglingColumns(const ManagedObject& object, std::vector<Value>& values) {
    const EntitySql& entitySql = m_engine.sql[object.objectID().entity];
    const std::size_t attributes = object.entity().attributes.size();
    for (std::size_t column = attributes; column < values.size(); ++column) {
        const std::int64_t row = std::get<std::int64_t>(values[column]);
        if (row == 0) continue;
        const Relation& relation = object.entity().relations[entitySql.columnRelations[column - attributes]];
        bool exists = false;
        if (const int code = rowExists(relation.target, row, exists); code != SQLITE_OK) return code;
        if (exists) continue;
        values[column] = std::int64_t{0};
        m_gone.push_back(m_engine.idOf(relation.target, row));
    }
    return SQLITE_OK;
}

int SaveTransaction::insert(ManagedObject& object) {
    const ObjectState& state = stateOf(object);
    const EntitySql& entitySql = m_engine.sql[object.objectID().entity];
    Outcome outcome{&object, 1, {}};
    if (m_isCareful) {
        outcome.values = state.values;
        if (const int code = dropDanglingColumns(object, outcome.values); code != SQLITE_OK) return code;
    }
    const std::vector<Value>& row = m_isCareful ? outcome.values : state.values;
    {
        sqlite::Use statement(m_database.statement(entitySql.insert.slot, entitySql.insert.text));
        if (!statement) return m_database.lastCode();
        statement->bind(1, object.objectID().row);
        for (std::size_t column = 0; column < row.size(); ++column)
            bindColumn(*statement, static_cast<int>(column) + 2, entitySql, column, row[column]);
        if (const int code = statement->step(); code != SQLITE_DONE) return code;
    }
    std::vector<std::size_t> columns;
    for (std::size_t column = object.entity().attributes.size(); column < row.size(); ++column)
        columns.push_back(column);
    noteReleases(object, row, columns);
    m_outcomes.push_back(std::move(outcome));
    return SQLITE_OK;
}

int SaveTransaction::updateColumns(const ManagedObject& object, const std::vector<Value>& values,
                                   const std::vector<std::size_t>& columns, std::int64_t version, bool& hit) {
    const EntitySql& entitySql = m_engine.sql[object.objectID().entity];
    {
        sqlite::Use statement(m_engine.updateStatement(m_database, entitySql, columns));
        if (!statement) return m_database.lastCode();
        int position = 1;
        for (const std::size_t column : columns)
            bindColumn(*statement, position++, entitySql, column, values[column]);
        statement->bind(position++, object.objectID().row);
        statement->bind(position, version);
        if (const int code = statement->step(); code != SQLITE_DONE) return code;
    }
    hit = m_database.changes() > 0;
    if (hit) noteReleases(object, values, columns);
    return SQLITE_OK;
}

int SaveTransaction::update(ManagedObject& object) {
    const ObjectState& state = stateOf(object);
    std::vector<std::size_t> columns;
    for (const auto& entry : state.originals)
        columns.push_back(entry.column);
    std::sort(columns.begin(), columns.end());
    Outcome outcome{&object, state.version + 1, {}};
    if (m_isCareful) {
        outcome.values = state.values;
        if (const int code = dropDanglingColumns(object, outcome.values); code != SQLITE_OK) return code;
    }
    bool hit = false;
    const std::vector<Value>& row = m_isCareful ? outcome.values : state.values;
    if (const int code = updateColumns(object, row, columns, state.version, hit); code != SQLITE_OK) return code;
    if (!hit) return resolveConflict(object);
    m_outcomes.push_back(std::move(outcome));
    return SQLITE_OK;
}

/// The row isn't at the version this context read: somebody else wrote it, or deleted it. Property by property, what
/// only one side changed stands; what both changed goes by the policy.
int SaveTransaction::resolveConflict(ManagedObject& object) {
    m_hadConflict = true;
    const ObjectState& state = stateOf(object);
    const ObjectID& id = object.objectID();
    const EntitySql& entitySql = m_engine.sql[id.entity];
    ObjectState stored;
    {
        sqlite::Use statement(m_database.statement(entitySql.load.slot, entitySql.load.text));
        if (!statement) return m_database.lastCode();
        statement->bind(1, id.row);
        const int code = statement->step();
        if (code == SQLITE_DONE) {
            m_gone.push_back(id);
            return SQLITE_OK;
        }
        if (code != SQLITE_ROW) return code;
        m_engine.readColumns(stored, entitySql, *statement, 0);
    }
    std::vector<std::size_t> columns;
    for (const auto& [column, base] : state.originals) {
        const Value& theirs = stored.values[column];
        const bool bothChanged = theirs != base;
        if (bothChanged && m_engine.policy == MergePolicy::ByPropertyStoreTrump) continue;
        if (theirs == state.values[column]) continue;
        stored.values[column] = state.values[column];
        columns.push_back(column);
    }
    if (m_isCareful)
        if (const int code = dropDanglingColumns(object, stored.values); code != SQLITE_OK) return code;
    if (!columns.empty()) {
        std::sort(columns.begin(), columns.end());
        bool hit = false;
        if (const int code = updateColumns(object, stored.values, columns, stored.version, hit); code != SQLITE_OK)
            return code;
        ++stored.version;
    }
    m_outcomes.push_back(Outcome{&object, stored.version, std::move(stored.values)});
    return SQLITE_OK;
}

void SaveTransaction::noteReleases(const ManagedObject& object, const std::vector<Value>& values,
                                   const std::vector<std::size_t>& columns) {
    const ObjectID& id = object.objectID();
    const std::size_t attributes = object.entity().attributes.size();
    for (const std::size_t column : columns) {
        if (column < attributes) continue;
        const std::size_t relationIndex = m_engine.sql[id.entity].columnRelations[column - attributes];
        const Relation& relation = object.entity().relations[relationIndex];
        const Relation& inverse = m_engine.sql[relation.target].entity->relations[relation.inverse];
        const std::int64_t target = std::get<std::int64_t>(values[column]);
        if (target == 0 || inverse.description.cardinality != Cardinality::ToOne) continue;
        // Nobody else knows a row that is inserted by this save.
        if (!isInsertedHere(relation.target, target)) m_releases.push_back({id.entity, relationIndex, target, id.row});
    }
}

/// One to one: another row that somebody else let point to the same target meanwhile lets go of it. After all updates,
/// because those of this save let go by themselves.
int SaveTransaction::releaseOthers() {
    for (const Release& release : m_releases) {
        const SlotSql& text = m_engine.sql[release.entity].relations[release.relation].releaseOthers;
        sqlite::Use statement(m_database.statement(text.slot, text.text));
        if (!statement) return m_database.lastCode();
        statement->bind(1, release.target);
        statement->bind(2, release.row);
        int code = SQLITE_ROW;
        while ((code = statement->step()) == SQLITE_ROW)
            m_neighbours.push_back(m_engine.idOf(release.entity, statement->integer(0)));
        if (code != SQLITE_DONE) return code;
    }
    return SQLITE_OK;
}

int SaveTransaction::writePair(const SavePlan::Pair& pair) {
    const Relation& relation = m_engine.sql[pair.entity].entity->relations[pair.relation];
    const auto isGone = [&](std::size_t entity, std::int64_t row) {
        return std::find(m_gone.begin(), m_gone.end(), m_engine.idOf(entity, row)) != m_gone.end();
    };
    if (!m_gone.empty() && (isGone(pair.entity, pair.row) || isGone(relation.target, pair.member))) return SQLITE_OK;
    if (m_isCareful && pair.add) {
        const std::pair<std::size_t, std::int64_t> ends[] = {{pair.entity, pair.row}, {relation.target, pair.member}};
        for (const auto& [entity, row] : ends) {
            bool exists = false;
            if (const int code = rowExists(entity, row, exists); code != SQLITE_OK) return code;
            if (exists) continue;
            m_gone.push_back(m_engine.idOf(entity, row));
            return SQLITE_OK;
        }
    }
    const RelationSql& relationSql = m_engine.sql[pair.entity].relations[pair.relation];
    const SlotSql& text = pair.add ? relationSql.addPair : relationSql.removePair;
    sqlite::Use statement(m_database.statement(text.slot, text.text));
    if (!statement) return m_database.lastCode();
    statement->bind(1, pair.row);
    statement->bind(2, pair.member);
    const int code = statement->step();
    return code == SQLITE_DONE ? SQLITE_OK : code;
}

/// Before a row goes: who will lose it, and who goes with it, also those that others attached meanwhile.
int SaveTransaction::noteNeighbours(std::size_t entity, std::int64_t row, std::vector<ObjectID>& cascade) {
    const EntitySql& entitySql = m_engine.sql[entity];
    ObjectState stored;
    {
        sqlite::Use statement(m_database.statement(entitySql.load.slot, entitySql.load.text));
        if (!statement) return m_database.lastCode();
        statement->bind(1, row);
        const int code = statement->step();
        if (code == SQLITE_DONE) return SQLITE_OK;
        if (code != SQLITE_ROW) return code;
        m_engine.readColumns(stored, entitySql, *statement, 0);
    }
    for (std::size_t i = 0; i < entitySql.relations.size(); ++i) {
        const Relation& relation = entitySql.entity->relations[i];
        auto& list = relation.description.deleteRule == DeleteRule::Cascade ? cascade : m_neighbours;
        if (relation.storage == RelationStorage::Column) {
            const std::int64_t target = stored.row(static_cast<std::size_t>(entitySql.columnOfRelation[i]));
            if (target != 0) list.push_back(m_engine.idOf(relation.target, target));
            continue;
        }
        const SlotSql& text = entitySql.relations[i].members;
        sqlite::Use statement(m_database.statement(text.slot, text.text));
        if (!statement) return m_database.lastCode();
        statement->bind(1, row);
        int code = SQLITE_ROW;
        while ((code = statement->step()) == SQLITE_ROW)
            list.push_back(m_engine.idOf(relation.target, statement->integer(0)));
        if (code != SQLITE_DONE) return code;
    }
    return SQLITE_OK;
}

int SaveTransaction::remove(std::size_t entity, std::int64_t row) {
    std::vector<ObjectID> open{m_engine.idOf(entity, row)};
    while (!open.empty()) {
        const ObjectID id = open.back();
        open.pop_back();
        if (!m_deleted.insert(id).second) continue;
        if (const int code = noteNeighbours(id.entity, id.row, open); code != SQLITE_OK) return code;
    }
    const SlotSql& text = m_engine.sql[entity].remove;
    sqlite::Use statement(m_database.statement(text.slot, text.text));
    if (!statement) return m_database.lastCode();
    statement->bind(1, row);
    const int code = statement->step();
    return code == SQLITE_DONE ? SQLITE_OK : code;
}

void SaveTransaction::noteEndpoints() {
    const auto idOf = [](const Ref<ManagedObject>& object) {
        return object->objectID();
    };
    std::transform(m_plan.inserted.begin(), m_plan.inserted.end(), std::back_inserter(m_changes.inserted), idOf);
    m_changes.deleted.assign(m_deleted.begin(), m_deleted.end());
    auto& updated = m_changes.updated;
    for (const auto& outcome : m_outcomes)
        if (!stateOf(*outcome.object).inserted) updated.push_back(outcome.object->objectID());
    for (const auto& pair : m_plan.pairs) {
        updated.push_back(m_engine.idOf(pair.entity, pair.row));
        updated.push_back(
            m_engine.idOf(m_engine.sql[pair.entity].entity->relations[pair.relation].target, pair.member));
    }
    for (const auto& outcome : m_outcomes) {
        const ManagedObject& object = *outcome.object;
        const ObjectState& state = stateOf(object);
        const EntitySql& entitySql = m_engine.sql[object.objectID().entity];
        const std::size_t attributes = object.entity().attributes.size();
        for (std::size_t column = attributes; column < state.values.size(); ++column) {
            const Value* original = state.original(column);
            if (!state.inserted && !original) continue;
            const std::size_t target = object.entity().relations[entitySql.columnRelations[column - attributes]].target;
            for (const Value* end : std::initializer_list<const Value*>{original, &state.values[column]})
                if (end && std::get<std::int64_t>(*end) != 0)
                    updated.push_back(m_engine.idOf(target, std::get<std::int64_t>(*end)));
        }
    }
    updated.insert(updated.end(), m_neighbours.begin(), m_neighbours.end());
    makeUnique(m_changes.inserted);
    makeUnique(m_changes.deleted);
    makeUnique(updated);
    makeUnique(m_gone);
    const auto without = [&](const std::vector<ObjectID>& others) {
        std::erase_if(updated,
                      [&](const ObjectID& id) { return std::binary_search(others.begin(), others.end(), id); });
    };
    without(m_changes.inserted);
    without(m_changes.deleted);
    without(m_gone);
}

} // namespace ledgerfinch
