// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/SqlCompiler.h"

#include "objectstore/PredicateEvaluator.h"
#include "objectstore/Values.h"

#include <algorithm>

namespace ledgerfinch {
namespace {

using namespace predicate;

bool isNumeric(AttributeType type) {
    return type == AttributeType::Int64 || type == AttributeType::Boolean;
}

std::string_view symbolOf(Operator op) {
    switch (op) {
    case Operator::Equal:
        return "=";
    case Operator::NotEqual:
        return "<>";
    case Operator::Less:
        return "<";
    case Operator::LessOrEqual:
        return "<=";
    case Operator::Greater:
        return ">";
    case Operator::GreaterOrEqual:
        return ">=";
    }
    return "=";
}

class PredicateCompiler {
public:
    PredicateCompiler(const Model& model, const Entity& entity) : m_model(model), m_entity(entity) {}

    CompiledSql run(const Node& root) {
        std::string text = compile(root, false);
        return {std::move(text), std::move(m_values)};
    }

private:
    /// SQL has three truth values, the language two. A condition that may be unknown is as good as false, unless it is
    /// negated: then `exact` asks for one that is never unknown. (Always exact would keep indexes from being used.)
    std::string compile(const Node& node, bool exact) {
        return std::visit(Overloaded{
                              [](const Constant& constant) { return std::string(constant.value ? "1" : "0"); },
                              [&](const Comparison& comparison) {
                                  std::string text = compileComparison(comparison);
                                  return exact ? "((" + text + ") IS TRUE)" : text;
                              },
                              [&](const Compound& compound) { return compileCompound(compound, exact); },
                              [&](const Not& negation) { return "(NOT " + compile(*negation.part, true) + ")"; },
                          },
                          node.content);
    }

    std::string compileCompound(const Compound& compound, bool exact) {
        std::vector<std::string> parts;
        parts.reserve(compound.parts.size());
        for (const auto& part : compound.parts)
            parts.push_back(compile(*part, exact));
        return joined(parts, 0, parts.size(), compound.kind == Compound::Kind::And ? " AND " : " OR ");
    }

    /// Balanced, because the depth of an expression is limited (https://www.sqlite.org/limits.html, 6).
    static std::string joined(const std::vector<std::string>& parts, std::size_t first, std::size_t last,
                              std::string_view joint) {
        constexpr std::size_t kFlat = 32;
        std::string text = "(";
        if (last - first <= kFlat) {
            for (std::size_t i = first; i < last; ++i) {
                if (i > first) text += joint;
                text += parts[i];
            }
        } else {
            const std::size_t middle = first + (last - first) / 2;
            text += joined(parts, first, middle, joint);
            text += joint;
            text += joined(parts, middle, last, joint);
        }
        return text + ")";
    }

    std::string compileComparison(const Comparison& comparison) {
        const auto* leftPath = std::get_if<KeyPath>(&comparison.left);
        const auto* rightPath = std::get_if<KeyPath>(&comparison.right);
        if (leftPath && rightPath) return comparePaths(*leftPath, comparison.op, *rightPath);
        if (leftPath) return compareWithLiteral(*leftPath, comparison.op, std::get<Literal>(comparison.right).value);
        if (rightPath)
            return compareWithLiteral(*rightPath, mirrored(comparison.op), std::get<Literal>(comparison.left).value);
        return compareLiterals(std::get<Literal>(comparison.left).value, comparison.op,
                               std::get<Literal>(comparison.right).value)
                   ? "1"
                   : "0";
    }

    std::string compareWithLiteral(const KeyPath& keyPath, Operator op, const Value& literal) {
        const auto path = resolvePath(m_model, m_entity, keyPath.names);
        if (values::isAbsent(literal)) {
            if (op != Operator::Equal && op != Operator::NotEqual) return "0";
            if (!path) return op == Operator::Equal ? "1" : "0";
            const std::string present = through(*path, 0, "t0", [&](const std::string& alias) {
                return alias + "." + sqlName(path->last->attributes[*path->attribute].name) + " IS NOT NULL";
            });
            return op == Operator::NotEqual ? present : "(NOT ((" + present + ") IS TRUE))";
        }
        if (!path || !path->attribute) return "0";
        const AttributeDescription& attribute = path->last->attributes[*path->attribute];
        auto comparable = values::coerced(literal, attribute.type);
        if (!comparable) return "0";
        return through(*path, 0, "t0", [&](const std::string& alias) {
            m_values.push_back(*comparable);
            return alias + "." + sqlName(attribute.name) + std::string(symbolOf(op)) + "?";
        });
    }

    /// The rows from which the path leads to a row that fulfils the leaf condition. Said with IN, so that an index on
    /// the far attribute and the one on the column both serve.
    template <class Leaf>
    std::string through(const ResolvedPath& path, std::size_t hop, const std::string& alias, const Leaf& leaf) {
        if (hop == path.hops.size()) return path.attribute ? leaf(alias) : std::string("1");
        const Relation& relation = path.hops[hop].entity->relations[path.hops[hop].relation];
        const bool endsHere = !path.attribute && hop + 1 == path.hops.size();
        if (relation.storage == RelationStorage::Column && endsHere)
            return alias + "." + sqlName(relation.ownColumn) + " IS NOT NULL";
        const std::string next = "t" + std::to_string(++m_aliases);
        const std::string table = sqlName(m_model.entities()[relation.target].table) + " " + next;
        if (relation.storage == RelationStorage::Column)
            return alias + "." + sqlName(relation.ownColumn) + " IN (SELECT " + next + ".pk FROM " + table + " WHERE " +
                   through(path, hop + 1, next, leaf) + ")";
        const std::string back = next + "." + sqlName(relation.targetColumn);
        return alias + ".pk IN (SELECT " + back + " FROM " + table + " WHERE " + back + " IS NOT NULL AND " +
               through(path, hop + 1, next, leaf) + ")";
    }

    std::string comparePaths(const KeyPath& leftPath, Operator op, const KeyPath& rightPath) {
        const auto left = resolvePath(m_model, m_entity, leftPath.names);
        const auto right = resolvePath(m_model, m_entity, rightPath.names);
        if (!left || !right || !left->attribute || !right->attribute) return "0";
        const AttributeType leftType = left->last->attributes[*left->attribute].type;
        const AttributeType rightType = right->last->attributes[*right->attribute].type;
        std::string leftText = scalar(*left);
        std::string rightText = scalar(*right);
        if (leftType == AttributeType::String && isNumeric(rightType))
            leftText = "lf_number(" + leftText + ")";
        else if (rightType == AttributeType::String && isNumeric(leftType))
            rightText = "lf_number(" + rightText + ")";
        else if (leftType != rightType && !(isNumeric(leftType) && isNumeric(rightType)))
            return "0";
        // A unary plus takes the affinity away, which would convert one side.
        return "+" + leftText + std::string(symbolOf(op)) + "+" + rightText;
    }

public:
    /// The value at the end of the path; for the rows of "t0".
    std::string scalar(const ResolvedPath& path) { return scalarFrom(path, 0, "t0"); }

private:
    std::string scalarFrom(const ResolvedPath& path, std::size_t hop, const std::string& alias) {
        if (hop == path.hops.size()) return alias + "." + sqlName(path.last->attributes[*path.attribute].name);
        const Relation& relation = path.hops[hop].entity->relations[path.hops[hop].relation];
        const std::string next = "t" + std::to_string(++m_aliases);
        const std::string inner = scalarFrom(path, hop + 1, next);
        const std::string from = "(SELECT " + inner + " FROM " + sqlName(m_model.entities()[relation.target].table) +
                                 " " + next + " WHERE " + next + ".";
        if (relation.storage == RelationStorage::Column)
            return from + "pk=" + alias + "." + sqlName(relation.ownColumn) + ")";
        return from + sqlName(relation.targetColumn) + "=" + alias + ".pk ORDER BY " + next + ".pk LIMIT 1)";
    }

    const Model& m_model;
    const Entity& m_entity;
    std::vector<Value> m_values;
    int m_aliases = 0;
};

} // namespace

std::vector<std::string> splitKeyPath(std::string_view keyPath) {
    std::vector<std::string> names;
    std::size_t start = 0;
    while (true) {
        const std::size_t dot = keyPath.find('.', start);
        names.emplace_back(keyPath.substr(start, dot == std::string_view::npos ? dot : dot - start));
        if (dot == std::string_view::npos) return names;
        start = dot + 1;
    }
}

std::optional<ResolvedPath> resolvePath(const Model& model, const Entity& entity,
                                        const std::vector<std::string>& names) {
    ResolvedPath path;
    path.last = &entity;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (const auto attribute = path.last->attribute(names[i])) {
            if (i + 1 != names.size()) return std::nullopt;
            path.attribute = attribute;
            return path;
        }
        const auto relation = path.last->relation(names[i]);
        if (!relation) return std::nullopt;
        if (path.last->relations[*relation].description.cardinality != Cardinality::ToOne) return std::nullopt;
        path.hops.push_back({path.last, *relation});
        path.last = &model.entities()[path.last->relations[*relation].target];
    }
    if (path.hops.empty()) return std::nullopt;
    return path;
}

CompiledSql compilePredicate(const Model& model, const Entity& entity, const predicate::Node& root) {
    return PredicateCompiler(model, entity).run(root);
}

CompiledSql compileFetch(const StoreSql& sql, const Entity& entity, const FetchRequest& request, FetchColumns columns) {
    const EntitySql& entitySql = sql[entity.index];
    CompiledSql result;
    switch (columns) {
    case FetchColumns::Row:
        result.text = "SELECT t0.pk";
        break;
    case FetchColumns::RowAndValues:
        result.text = "SELECT t0.pk," + entitySql.columnList;
        break;
    case FetchColumns::Count:
        result.text = "SELECT count(*)";
        break;
    }
    result.text += " FROM " + sqlName(entity.table) + " t0";
    if (request.predicate) {
        CompiledSql condition = compilePredicate(sql.model(), entity, request.predicate->root());
        result.text += " WHERE " + condition.text;
        result.values = std::move(condition.values);
    }
    if (columns == FetchColumns::Count) return result;

    result.text += " ORDER BY ";
    PredicateCompiler compiler(sql.model(), entity);
    for (const SortDescriptor& sort : request.sort) {
        const auto path = resolvePath(sql.model(), entity, splitKeyPath(sort.keyPath));
        if (!path || !path->attribute) continue;
        result.text += compiler.scalar(*path);
        if (sort.comparison == SortComparison::LocalizedStandard &&
            path->last->attributes[*path->attribute].type == AttributeType::String)
            result.text += " COLLATE lf_localized";
        result.text += sort.order == SortOrder::Descending ? " DESC," : ",";
    }
    result.text += "t0.pk";
    if (request.limit || request.offset) {
        constexpr std::size_t kEverything = std::size_t{1} << 62;
        const auto number = [most = kEverything](std::size_t size) {
            return static_cast<std::int64_t>(std::min(size, most));
        };
        result.text += " LIMIT ? OFFSET ?";
        result.values.emplace_back(number(request.limit.value_or(kEverything)));
        result.values.emplace_back(number(request.offset));
    }
    return result;
}

} // namespace ledgerfinch
