// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Value.h"

#include <memory>
#include <string>
#include <variant>
#include <vector>

/// The syntax tree of the predicate language. Parser, printer, evaluator and SQL compiler each are a file of their own
/// over these nodes; all four visit the variant, so that a new kind of node is missed by none.
namespace ledgerfinch::predicate {

enum class Operator { Equal, NotEqual, Less, LessOrEqual, Greater, GreaterOrEqual };

/// Names joined by ".": to-one relations, then an attribute or a to-one relation.
struct KeyPath {
    std::vector<std::string> names;
    bool operator==(const KeyPath&) const = default;
};

/// A value; absent is nil.
struct Literal {
    Value value;
    bool operator==(const Literal&) const = default;
};

using Expression = std::variant<KeyPath, Literal>;

struct Node;
using NodePointer = std::shared_ptr<const Node>;

struct Constant {
    bool value = true;
};

/// A comparison with nil asks whether there is a value. Any other with an absent side holds for no object, "!="
/// included.
struct Comparison {
    Expression left;
    Operator op = Operator::Equal;
    Expression right;
};

/// Two parts or more.
struct Compound {
    enum class Kind { And, Or };
    Kind kind = Kind::And;
    std::vector<NodePointer> parts;
};

struct Not {
    NodePointer part;
};

struct Node {
    std::variant<Constant, Comparison, Compound, Not> content;
};

/// The operator that says the same with its sides exchanged.
constexpr Operator mirrored(Operator op) {
    switch (op) {
    case Operator::Less:
        return Operator::Greater;
    case Operator::LessOrEqual:
        return Operator::GreaterOrEqual;
    case Operator::Greater:
        return Operator::Less;
    case Operator::GreaterOrEqual:
        return Operator::LessOrEqual;
    default:
        return op;
    }
}

/// How deep a tree may be; the parser refuses deeper ones.
inline constexpr int kMaximumDepth = 200;

/// Every key path of the tree, in reading order.
void collectKeyPaths(const Node& node, std::vector<const KeyPath*>& paths);

template <class... Visitors>
struct Overloaded : Visitors... {
    using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

} // namespace ledgerfinch::predicate
