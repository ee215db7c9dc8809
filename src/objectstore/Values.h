// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Database.h"
#include "objectstore/Model.h"
#include "objectstore/Value.h"

#include <compare>
#include <optional>
#include <string_view>

namespace ledgerfinch::values {

/// What an attribute holds before anything was set: 0 and false for Int64 and Boolean, absent for the rest.
const Value& initial(AttributeType type);
/// The value as an attribute of this type holds it; nothing when it doesn't fit the type.
std::optional<Value> fitted(Value value, AttributeType type);

void bind(sqlite::Statement& statement, int position, const Value& value);
Value read(const sqlite::Statement& statement, int column, AttributeType type);

inline bool isAbsent(const Value& value) {
    return std::holds_alternative<std::monostate>(value);
}

/// Orders two present values of the same kind as the file does; numbers (Int64, Boolean, double) are of one kind.
/// Nothing for different kinds.
std::optional<std::strong_ordering> compare(const Value& first, const Value& second);

/// A text as a number: empty is 0; nothing when it isn't an integer or a decimal number.
std::optional<Value> numberFrom(std::string_view text);
/// A comparison value brought to the kind of an attribute. Nothing: it can't be compared, so it matches nothing.
std::optional<Value> coerced(const Value& value, AttributeType type);

} // namespace ledgerfinch::values
