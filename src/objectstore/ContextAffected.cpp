// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ContextPrivate.h"
#include "objectstore/PredicateNode.h"
#include "objectstore/SqlCompiler.h"

namespace ledgerfinch {
namespace {

using RowSet = std::set<std::int64_t>;

std::vector<ResolvedPath> pathsOf(const FetchRequest& request, const Model& model, const Entity& entity) {
    std::vector<ResolvedPath> paths;
    const auto add = [&](const std::vector<std::string>& names) {
        if (auto path = resolvePath(model, entity, names); path && !path->hops.empty())
            paths.push_back(std::move(*path));
    };
    if (request.predicate) {
        std::vector<const predicate::KeyPath*> keyPaths;
        predicate::collectKeyPaths(request.predicate->root(), keyPaths);
        for (const auto* keyPath : keyPaths)
            add(keyPath->names);
    }
    for (const SortDescriptor& sort : request.sort)
        add(splitKeyPath(sort.keyPath));
    return paths;
}

} // namespace

/// Rows of an entity with anything pending: own changes, or changes at an end that is derived.
RowSet ContextEngine::pendingRows(std::size_t entity) const {
    RowSet rows;
    for (const auto& [row, object] : pending[entity])
        if (isEffective(*object)) rows.insert(row);
    for (const auto& [key, change] : deltas)
        if (key.entity == entity) rows.insert(key.row);
    return rows;
}

/// From what is pending anywhere along the key paths of a fetch, back over the inverse relations to where it starts.
Result<RowSet> ContextEngine::affectedRows(const FetchRequest& request, const Entity& entity) {
    RowSet result = pendingRows(entity.index);
    for (const ResolvedPath& path : pathsOf(request, sql.model(), entity)) {
        RowSet reached;
        for (std::size_t hop = path.hops.size(); hop-- > 0;) {
            const Relation& relation = path.hops[hop].entity->relations[path.hops[hop].relation];
            reached.merge(pendingRows(relation.target));
            RowSet before;
            for (const std::int64_t row : reached) {
                if (relation.storage == RelationStorage::Column) {
                    auto holders = queryMembers(relation.target, relation.inverse, row);
                    if (!holders)
                        return Error{"The store failed while looking for what changed.",
                                     static_cast<int>(StoreErrorCode::Failed)};
                    before.insert(holders->begin(), holders->end());
                } else {
                    const auto holder = materialize(relation.target, row);
                    ensureLoaded(*holder);
                    const auto column = sql[relation.target].columnOfRelation[relation.inverse];
                    if (const std::int64_t own = stateOf(*holder).row(static_cast<std::size_t>(column)))
                        before.insert(own);
                }
            }
            reached = std::move(before);
        }
        result.merge(reached);
    }
    return result;
}

} // namespace ledgerfinch
