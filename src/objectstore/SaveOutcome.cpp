// SPDX-License-Identifier: GPL-3.0-or-later
// What memory learns of a save, once it is committed.
#include "objectstore/SaveTransaction.h"

namespace ledgerfinch {

/// What was pending about a saved object's columns is now in the store.
void SaveTransaction::settle(const ManagedObject& object) {
    const ObjectState& state = stateOf(object);
    const EntitySql& entitySql = m_engine.sql[object.objectID().entity];
    const std::size_t attributes = object.entity().attributes.size();
    for (std::size_t column = attributes; column < state.values.size(); ++column) {
        const Value* original = state.original(column);
        if (!state.inserted && !original) continue;
        const Relation& relation = object.entity().relations[entitySql.columnRelations[column - attributes]];
        SetKey key{static_cast<std::uint32_t>(relation.target), static_cast<std::uint32_t>(relation.inverse), 0};
        if (original && (key.row = std::get<std::int64_t>(*original)) != 0)
            m_engine.shiftDelta(key, object.objectID().row, true);
        if ((key.row = state.row(column)) != 0) m_engine.shiftDelta(key, object.objectID().row, false);
    }
}

void SaveTransaction::settlePair(const SavePlan::Pair& pair) {
    const Relation& relation = m_engine.sql[pair.entity].entity->relations[pair.relation];
    m_engine.shiftDelta({pair.entity, pair.relation, pair.row}, pair.member, !pair.add);
    m_engine.shiftDelta(
        {static_cast<std::uint32_t>(relation.target), static_cast<std::uint32_t>(relation.inverse), pair.member},
        pair.row, !pair.add);
}

void SaveTransaction::apply() {
    if (m_plan.everything) {
        m_engine.deltas.clear();
    } else {
        for (const auto& pair : m_plan.pairs)
            settlePair(pair);
        for (const auto* list : {&m_plan.inserted, &m_plan.updated})
            for (const auto& object : *list)
                settle(*object);
    }
    // Ids that lead elsewhere now.
    const auto forgetId = [this](const ManagedObject& object, const Value& id) {
        if (const auto* number = std::get_if<std::int64_t>(&id))
            m_engine.idCaches[object.objectID().entity].rows.erase(*number);
    };
    for (const auto* list : {&m_plan.inserted, &m_plan.updated}) {
        for (const auto& object : *list) {
            const auto attribute = m_engine.sql[object->objectID().entity].idAttribute;
            if (attribute < 0) continue;
            const ObjectState& state = stateOf(*object);
            if (const Value* original = state.original(static_cast<std::size_t>(attribute)))
                forgetId(*object, *original);
            forgetId(*object, state.values[static_cast<std::size_t>(attribute)]);
        }
    }
    for (const ObjectID& id : m_deleted)
        m_engine.idCaches[id.entity].rows.clear();

    for (Outcome& outcome : m_outcomes) {
        ObjectState& state = stateOf(*outcome.object);
        state.version = outcome.version;
        state.inserted = false;
        state.originals.clear();
        if (outcome.values.empty()) continue;
        state.values = std::move(outcome.values);
    }
    for (const auto* list : {&m_plan.inserted, &m_plan.updated, &m_plan.touched})
        for (const auto& object : *list)
            if (m_plan.everything || !m_engine.isEffective(*object)) m_engine.forgetPending(*object);
    for (const ObjectID& id : m_deleted) {
        const auto object = m_engine.alive(id.entity, id.row);
        if (object) m_engine.markGone(*object);
    }
    for (const ObjectID& id : m_gone)
        if (const auto object = m_engine.alive(id.entity, id.row)) m_engine.markGone(*object);

    // Whoever lost a neighbour, or was merged with what others wrote, reads its relations anew.
    const auto readAnew = [this](const ObjectID& id) {
        const auto object = m_engine.alive(id.entity, id.row);
        if (!object || stateOf(*object).gone || stateOf(*object).inserted) return;
        ObjectState& state = stateOf(*object);
        state.sets.clear();
        if (state.originals.empty())
            state.loaded = false;
        else
            m_engine.rebase(*object);
    };
    for (const ObjectID& id : m_neighbours)
        readAnew(id);
    if (m_isCareful || m_hadConflict)
        for (const ObjectID& id : m_changes.updated)
            readAnew(id);
}

} // namespace ledgerfinch
