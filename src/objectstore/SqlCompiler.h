// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/FetchRequest.h"
#include "objectstore/Model.h"
#include "objectstore/PredicateNode.h"
#include "objectstore/StoreSql.h"

#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

/// A condition or query with its values, in the order of their marks.
struct CompiledSql {
    std::string text;
    std::vector<Value> values;
};

/// A key path, resolved from an entity through to-one relations.
struct ResolvedPath {
    struct Hop {
        const Entity* entity = nullptr; ///< the entity the relation belongs to
        std::size_t relation = 0;
    };
    std::vector<Hop> hops;
    const Entity* last = nullptr;         ///< where the attribute is; without one, the target of the last hop
    std::optional<std::size_t> attribute; ///< absent: the path ends with a relation
};
/// Nothing for unknown names and to-many relations.
std::optional<ResolvedPath> resolvePath(const Model& model, const Entity& entity,
                                        const std::vector<std::string>& names);
std::vector<std::string> splitKeyPath(std::string_view keyPath);

/// The condition on rows of the entity under the alias "t0". It says of every row what the evaluator says of the
/// object.
CompiledSql compilePredicate(const Model& model, const Entity& entity, const predicate::Node& root);

enum class FetchColumns { Row, RowAndValues, Count };
/// A whole fetch: rows ordered by the descriptors, then by row. A sort key that leads nowhere is passed over.
CompiledSql compileFetch(const StoreSql& sql, const Entity& entity, const FetchRequest& request, FetchColumns columns);

} // namespace ledgerfinch
