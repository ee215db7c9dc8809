// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Value.h"
#include "platform/Result.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

class ManagedObject;
namespace predicate {
struct Node;
}

/// A condition on objects, made from the format language: comparisons of key paths with values, joined by AND, OR, NOT;
/// "%d" and "%@" take arguments in turn. Immutable, cheap to copy, usable on any thread.
///
/// A text compared with an integer attribute is converted: empty counts as 0, one that is no number matches nothing.
class Predicate {
public:
    /// Fails with the position of what it doesn't understand, and for a wrong number of arguments.
    static Result<Predicate> parse(std::string_view format, std::vector<Value> arguments = {});
    /// All of them; with none, everything matches.
    static Predicate allOf(std::vector<Predicate> parts);
    static Predicate anyOf(std::vector<Predicate> parts);
    /// Matches no object.
    static Predicate nothing();

    /// A text that parses back to the same tree.
    [[nodiscard]] std::string predicateFormat() const;
    /// Inside the object's context.
    [[nodiscard]] bool evaluate(const ManagedObject& object) const;

    [[nodiscard]] const predicate::Node& root() const { return *m_root; }

private:
    explicit Predicate(std::shared_ptr<const predicate::Node> root) : m_root(std::move(root)) {}
    std::shared_ptr<const predicate::Node> m_root;
};

} // namespace ledgerfinch
