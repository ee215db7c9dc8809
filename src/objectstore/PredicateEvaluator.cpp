// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/PredicateEvaluator.h"

#include "objectstore/ManagedObject.h"
#include "objectstore/Predicate.h"
#include "objectstore/Values.h"

#include <algorithm>

namespace ledgerfinch {
namespace predicate {
namespace {

bool isNil(const Expression& expression) {
    const auto* literal = std::get_if<Literal>(&expression);
    return literal && values::isAbsent(literal->value);
}

bool isNumeric(AttributeType type) {
    return type == AttributeType::Int64 || type == AttributeType::Boolean;
}

bool comparePresent(const Value& left, Operator op, const Value& right) {
    const auto order = values::compare(left, right);
    return order && holds(op, *order);
}

bool comparePaths(const PathValue& left, Operator op, const PathValue& right) {
    if (values::isAbsent(left.value) || values::isAbsent(right.value)) return false;
    if (!left.type || !right.type) return false;
    if (*left.type == *right.type || (isNumeric(*left.type) && isNumeric(*right.type)))
        return comparePresent(left.value, op, right.value);
    if (*left.type == AttributeType::String && isNumeric(*right.type)) {
        const auto number = values::numberFrom(std::get<std::string>(left.value));
        return number && comparePresent(*number, op, right.value);
    }
    if (*right.type == AttributeType::String && isNumeric(*left.type)) {
        const auto number = values::numberFrom(std::get<std::string>(right.value));
        return number && comparePresent(left.value, op, *number);
    }
    return false;
}

bool compareWithLiteral(const PathValue& left, Operator op, const Value& literal) {
    if (!left.type || values::isAbsent(left.value)) return false;
    const auto comparable = values::coerced(literal, *left.type);
    return comparable && comparePresent(left.value, op, *comparable);
}

bool evaluateComparison(const Comparison& comparison, const ManagedObject& object) {
    const auto* leftPath = std::get_if<KeyPath>(&comparison.left);
    const auto* rightPath = std::get_if<KeyPath>(&comparison.right);
    if (!leftPath && !rightPath)
        return compareLiterals(std::get<Literal>(comparison.left).value, comparison.op,
                               std::get<Literal>(comparison.right).value);
    if (leftPath && rightPath)
        return comparePaths(valueAt(object, *leftPath), comparison.op, valueAt(object, *rightPath));
    const PathValue found = valueAt(object, leftPath ? *leftPath : *rightPath);
    if (isNil(comparison.left) || isNil(comparison.right)) {
        if (comparison.op == Operator::Equal) return values::isAbsent(found.value);
        return comparison.op == Operator::NotEqual && !values::isAbsent(found.value);
    }
    if (leftPath) return compareWithLiteral(found, comparison.op, std::get<Literal>(comparison.right).value);
    return compareWithLiteral(found, mirrored(comparison.op), std::get<Literal>(comparison.left).value);
}

} // namespace

bool holds(Operator op, std::strong_ordering order) {
    switch (op) {
    case Operator::Equal:
        return order == 0;
    case Operator::NotEqual:
        return order != 0;
    case Operator::Less:
        return order < 0;
    case Operator::LessOrEqual:
        return order <= 0;
    case Operator::Greater:
        return order > 0;
    case Operator::GreaterOrEqual:
        return order >= 0;
    }
    return false;
}

bool compareLiterals(const Value& left, Operator op, const Value& right) {
    if (values::isAbsent(left) || values::isAbsent(right)) {
        const bool both = values::isAbsent(left) && values::isAbsent(right);
        return op == Operator::Equal ? both : op == Operator::NotEqual && !both;
    }
    const auto* leftText = std::get_if<std::string>(&left);
    const auto* rightText = std::get_if<std::string>(&right);
    if (leftText && !rightText) {
        const auto number = values::numberFrom(*leftText);
        return number && comparePresent(*number, op, right);
    }
    if (rightText && !leftText) {
        const auto number = values::numberFrom(*rightText);
        return number && comparePresent(left, op, *number);
    }
    return comparePresent(left, op, right);
}

PathValue valueAt(const ManagedObject& object, const KeyPath& path) {
    const ManagedObject* current = &object;
    std::shared_ptr<ManagedObject> holder;
    for (std::size_t i = 0; i < path.names.size(); ++i) {
        const Entity& entity = current->entity();
        const bool isLast = i + 1 == path.names.size();
        if (const auto attribute = entity.attribute(path.names[i])) {
            if (!isLast) return {};
            return {current->value(*attribute), entity.attributes[*attribute].type};
        }
        const auto relation = entity.relation(path.names[i]);
        if (!relation || entity.relations[*relation].description.cardinality != Cardinality::ToOne) return {};
        auto next = current->toOne(*relation);
        if (!next) return {};
        if (isLast) return {next->objectID().row, std::nullopt};
        holder = std::move(next);
        current = holder.get();
    }
    return {};
}

bool evaluate(const Node& node, const ManagedObject& object) {
    return std::visit(Overloaded{
                          [](const Constant& constant) { return constant.value; },
                          [&](const Comparison& comparison) { return evaluateComparison(comparison, object); },
                          [&](const Compound& compound) {
                              const auto matches = [&](const NodePointer& part) {
                                  return evaluate(*part, object);
                              };
                              return compound.kind == Compound::Kind::And
                                         ? std::all_of(compound.parts.begin(), compound.parts.end(), matches)
                                         : std::any_of(compound.parts.begin(), compound.parts.end(), matches);
                          },
                          [&](const Not& negation) { return !evaluate(*negation.part, object); },
                      },
                      node.content);
}

} // namespace predicate

bool Predicate::evaluate(const ManagedObject& object) const {
    return predicate::evaluate(*m_root, object);
}

} // namespace ledgerfinch
