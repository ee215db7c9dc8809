// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Model.h"
#include "objectstore/PredicateNode.h"

#include <optional>

namespace ledgerfinch::predicate {

/// What a key path leads to from an object. The type is that of the attribute at its end; a to-one relation at the end
/// has no type, and its value is the row of its target. Unknown names and to-many relations lead to nothing.
struct PathValue {
    Value value;
    std::optional<AttributeType> type;
};
PathValue valueAt(const ManagedObject& object, const KeyPath& path);

/// Whether two present values stand in this order; what SQL says of the same values.
bool holds(Operator op, std::strong_ordering order);
/// A comparison of two values that belong to no attribute.
bool compareLiterals(const Value& left, Operator op, const Value& right);

bool evaluate(const Node& node, const ManagedObject& object);

} // namespace ledgerfinch::predicate
