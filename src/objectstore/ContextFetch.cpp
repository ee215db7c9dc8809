// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ContextPrivate.h"
#include "objectstore/PredicateEvaluator.h"
#include "objectstore/SqlCompiler.h"
#include "objectstore/Values.h"
#include "platform/Text.h"

#include <algorithm>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

/// A fetch that asks for no more objects than this brings their values along.
constexpr std::size_t kValuesComeAlong = 512;

/// The order of a fetch, said of objects: what the ORDER BY says of rows.
class ObjectOrder {
public:
    explicit ObjectOrder(const FetchRequest& request) {
        for (const SortDescriptor& sort : request.sort)
            m_keys.push_back({predicate::KeyPath{splitKeyPath(sort.keyPath)}, &sort});
    }

    [[nodiscard]] bool isLess(const ManagedObject& first, const ManagedObject& second) const {
        for (const auto& [path, sort] : m_keys) {
            int order = compare(predicate::valueAt(first, path), predicate::valueAt(second, path), *sort);
            if (sort->order == SortOrder::Descending) order = -order;
            if (order != 0) return order < 0;
        }
        return first.objectID().row < second.objectID().row;
    }

private:
    static int compare(const predicate::PathValue& first, const predicate::PathValue& second,
                       const SortDescriptor& sort) {
        // A path that ends with a relation sorts nothing.
        const bool hasFirst = first.type && !values::isAbsent(first.value);
        const bool hasSecond = second.type && !values::isAbsent(second.value);
        if (!hasFirst || !hasSecond) return static_cast<int>(hasFirst) - static_cast<int>(hasSecond);
        const auto* text = std::get_if<std::string>(&first.value);
        if (text && sort.comparison == SortComparison::LocalizedStandard)
            return text::compareLocalizedStandard(*text, std::get<std::string>(second.value));
        const auto order = values::compare(first.value, second.value);
        return !order || *order == 0 ? 0 : *order < 0 ? -1 : 1;
    }

    struct Key {
        predicate::KeyPath path;
        const SortDescriptor* sort;
    };
    std::vector<Key> m_keys;
};

template <class T>
void cutToWindow(std::vector<T>& list, const FetchRequest& request) {
    const std::size_t start = std::min(request.offset, list.size());
    list.erase(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(start));
    if (request.limit && list.size() > *request.limit) list.resize(*request.limit);
}

} // namespace

Result<std::vector<std::int64_t>> ContextEngine::selectRows(const FetchRequest& request, const Entity& entity,
                                                            std::vector<Ref<ManagedObject>>* objects) {
    sqlite::Database* db = database();
    if (!db) return databaseError;
    const bool withValues = objects && request.limit && *request.limit <= kValuesComeAlong;
    const CompiledSql compiled =
        compileFetch(sql, entity, request, withValues ? FetchColumns::RowAndValues : FetchColumns::Row);
    sqlite::Use statement(db->statement(compiled.text));
    if (!statement) return db->lastError("fetching " + entity.name);
    for (std::size_t i = 0; i < compiled.values.size(); ++i)
        values::bind(*statement, static_cast<int>(i) + 1, compiled.values[i]);
    std::vector<std::int64_t> rows;
    int code = SQLITE_ROW;
    while ((code = statement->step()) == SQLITE_ROW) {
        rows.push_back(statement->integer(0));
        if (!withValues) continue;
        Ref<ManagedObject> object = materialize(entity.index, rows.back());
        ObjectState& state = stateOf(*object);
        if (!state.loaded && !state.gone) readColumns(state, sql[entity.index], *statement, 1);
        objects->push_back(std::move(object));
    }
    if (code != SQLITE_DONE) return db->error(code, "fetching " + entity.name);
    return rows;
}

Result<std::vector<std::int64_t>> ContextEngine::fetchRows(const FetchRequest& request, const Entity& entity,
                                                           std::vector<Ref<ManagedObject>>* objects) {
    if (!hasEffectiveChanges()) return selectRows(request, entity, objects);
    auto affected = affectedRows(request, entity);
    if (!affected) return affected.error();
    if (affected->empty()) return selectRows(request, entity, objects);

    // The store answers for the rows that nothing pending can move; the others are judged in memory and put in order.
    FetchRequest whole = request;
    whole.limit.reset();
    whole.offset = 0;
    auto rows = selectRows(whole, entity, nullptr);
    if (!rows) return rows;
    std::erase_if(*rows, [&](std::int64_t row) { return affected->contains(row); });
    std::vector<Ref<ManagedObject>> matching;
    for (const std::int64_t row : *affected) {
        Ref<ManagedObject> object = materialize(entity.index, row);
        if (stateOf(*object).removed || !ensureLoaded(*object)) continue;
        if (!request.predicate || request.predicate->evaluate(*object)) matching.push_back(std::move(object));
    }
    const ObjectOrder order(request);
    std::sort(matching.begin(), matching.end(), [&](const auto& a, const auto& b) { return order.isLess(*a, *b); });
    std::vector<std::int64_t> merged;
    merged.reserve(rows->size() + matching.size());
    auto from = rows->begin();
    for (const auto& object : matching) {
        const auto place = std::partition_point(from, rows->end(), [&](std::int64_t row) {
            return order.isLess(*materialize(entity.index, row), *object);
        });
        merged.insert(merged.end(), from, place);
        merged.push_back(object->objectID().row);
        from = place;
    }
    merged.insert(merged.end(), from, rows->end());
    cutToWindow(merged, request);
    return merged;
}

Result<std::size_t> ContextEngine::countRows(const FetchRequest& request, const Entity& entity) {
    bool storeKnows = !hasEffectiveChanges();
    if (!storeKnows) {
        auto affected = affectedRows(request, entity);
        if (!affected) return affected.error();
        storeKnows = affected->empty();
    }
    std::size_t total = 0;
    if (storeKnows) {
        sqlite::Database* db = database();
        if (!db) return databaseError;
        const CompiledSql compiled = compileFetch(sql, entity, request, FetchColumns::Count);
        sqlite::Use statement(db->statement(compiled.text));
        if (!statement) return db->lastError("counting " + entity.name);
        for (std::size_t i = 0; i < compiled.values.size(); ++i)
            values::bind(*statement, static_cast<int>(i) + 1, compiled.values[i]);
        const int code = statement->step();
        if (code != SQLITE_ROW) return db->error(code, "counting " + entity.name);
        total = static_cast<std::size_t>(statement->integer(0));
        total -= std::min(total, request.offset);
        return request.limit ? std::min(total, *request.limit) : total;
    }
    FetchRequest unsorted = request;
    unsorted.sort.clear();
    auto rows = fetchRows(unsorted, entity, nullptr);
    if (!rows) return rows.error();
    return rows->size();
}

} // namespace ledgerfinch
