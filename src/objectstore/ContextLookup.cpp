// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ContextPrivate.h"
#include "objectstore/Values.h"

#include <algorithm>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

/// Answers remembered for each entity. Small, because the ids that come again and again are few.
constexpr std::size_t kRememberedIds = 4096;

} // namespace

/// The shortest way to "id = %d": remembered answers, valid as long as nobody else has committed anything about the
/// entity, which costs a look at shared memory.
std::int64_t ContextEngine::firstRowWithID(const Entity& entity, std::int64_t id) {
    const EntitySql& entitySql = sql[entity.index];
    if (entitySql.idAttribute < 0) return 0;
    lookAround();
    takeInbox(false);
    const auto attribute = static_cast<std::size_t>(entitySql.idAttribute);

    // Pending objects that answer differently than their rows.
    std::int64_t fromPending = 0;
    bool hidesRows = false;
    for (const auto& [row, object] : pending[entity.index]) {
        const ObjectState& state = stateOf(*object);
        const bool idChanged = state.original(attribute) != nullptr;
        if (!state.inserted && !state.removed && !idChanged) continue;
        hidesRows |= !state.inserted;
        if (state.removed || std::get<std::int64_t>(state.values[attribute]) != id) continue;
        if (fromPending == 0 || row < fromPending) fromPending = row;
    }
    const auto first = [&](std::int64_t stored) {
        return stored == 0 || fromPending == 0 ? std::max(stored, fromPending) : std::min(stored, fromPending);
    };
    if (hidesRows) {
        std::int64_t stored = 0;
        sqlite::Database* db = database();
        sqlite::Use statement(
            db ? db->statement("SELECT pk FROM " + sqlName(entity.table) + " WHERE \"id\"=? ORDER BY pk") : nullptr);
        if (!statement) return fromPending;
        statement->bind(1, id);
        while (stored == 0 && statement->step() == SQLITE_ROW) {
            const std::int64_t row = statement->integer(0);
            const auto known = pending[entity.index].find(row);
            const bool hidden = known != pending[entity.index].end() &&
                                (stateOf(*known->second).removed || stateOf(*known->second).original(attribute));
            if (!hidden) stored = row;
        }
        return first(stored);
    }

    auto& remembered = idCaches[entity.index].rows;
    if (const auto found = remembered.find(id); found != remembered.end()) return first(found->second);
    sqlite::Database* db = database();
    sqlite::Use statement(db ? db->statement(entitySql.firstWithID.slot, entitySql.firstWithID.text) : nullptr);
    int code = SQLITE_ERROR;
    std::int64_t stored = 0;
    if (statement) {
        statement->bind(1, id);
        code = statement->step();
        if (code == SQLITE_ROW) stored = statement->integer(0);
    }
    if (code != SQLITE_ROW && code != SQLITE_DONE) {
        readFailed("Looking up an id failed", db ? db->lastError(entity.name) : databaseError);
        return fromPending;
    }
    if (remembered.size() >= kRememberedIds) remembered.clear();
    remembered.emplace(id, stored);
    return first(stored);
}

void ContextEngine::forgetIds(const ChangeSet& changes) {
    if (changes.everything) {
        for (auto& cache : idCaches)
            cache.rows.clear();
        return;
    }
    for (const auto* list : {&changes.inserted, &changes.updated, &changes.deleted})
        for (const ObjectID& id : *list)
            if (!idCaches[id.entity].rows.empty()) idCaches[id.entity].rows.clear();
}

Result<std::optional<std::int64_t>> ContextEngine::maximum(const Entity& entity, std::size_t attribute) {
    sqlite::Database* db = database();
    if (!db) return databaseError;
    std::optional<std::int64_t> highest;
    // From the highest down to the first row that nothing pending hides.
    sqlite::Use statement(db->statement("SELECT pk,\"" + entity.attributes[attribute].name + "\" FROM " +
                                        sqlName(entity.table) + " ORDER BY 2 DESC"));
    if (!statement) return db->lastError("finding a maximum");
    int code = SQLITE_ROW;
    while (!highest && (code = statement->step()) == SQLITE_ROW) {
        const auto known = pending[entity.index].find(statement->integer(0));
        const bool hidden = known != pending[entity.index].end() &&
                            (stateOf(*known->second).removed || stateOf(*known->second).original(attribute));
        if (!hidden) highest = statement->integer(1);
    }
    if (code != SQLITE_ROW && code != SQLITE_DONE) return db->error(code, "finding a maximum");
    for (const auto& [row, object] : pending[entity.index]) {
        const ObjectState& state = stateOf(*object);
        if (state.removed || state.gone || !state.loaded) continue;
        const auto value = std::get<std::int64_t>(state.values[attribute]);
        if (!highest || value > *highest) highest = value;
    }
    return highest;
}

} // namespace ledgerfinch
