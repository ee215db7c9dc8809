// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/Predicate.h"
#include "objectstore/PredicateNode.h"
#include "platform/Dates.h"

#include <array>
#include <charconv>

namespace ledgerfinch {
namespace predicate {
namespace {

void print(const Node& node, std::string& out);

std::string realText(double real) {
    std::array<char, 64> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), real);
    std::string text(buffer.data(), end.ptr);
    // It reads back as a real, not as an integer.
    if (text.find_first_of(".en") == std::string::npos) text += ".0";
    return text;
}

void printText(std::string_view text, std::string& out) {
    out += '\'';
    for (const char c : text) {
        switch (c) {
        case '\'':
        case '\\':
            out += '\\';
            out += c;
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += c;
        }
    }
    out += '\'';
}

void printValue(const Value& value, std::string& out) {
    std::visit(Overloaded{
                   [&](std::monostate) { out += "nil"; },
                   [&](std::int64_t number) { out += std::to_string(number); },
                   [&](bool truth) { out += truth ? "TRUE" : "FALSE"; },
                   [&](double real) { out += realText(real); },
                   [&](const std::string& text) { printText(text, out); },
                   [&](const Blob& blob) { printText(blob.bytes, out); },
                   [&](Timestamp time) {
                       out += "CAST(" + realText(dates::secondsSinceReferenceDate(time)) + ", \"NSDate\")";
                   },
                   [&](const Uuid& uuid) { printText(uuid.text(), out); },
               },
               value);
}

void printExpression(const Expression& expression, std::string& out) {
    if (const auto* path = std::get_if<KeyPath>(&expression)) {
        for (std::size_t i = 0; i < path->names.size(); ++i) {
            if (i) out += '.';
            out += path->names[i];
        }
    } else {
        printValue(std::get<Literal>(expression).value, out);
    }
}

std::string_view symbolOf(Operator op) {
    switch (op) {
    case Operator::Equal:
        return " == ";
    case Operator::NotEqual:
        return " != ";
    case Operator::Less:
        return " < ";
    case Operator::LessOrEqual:
        return " <= ";
    case Operator::Greater:
        return " > ";
    case Operator::GreaterOrEqual:
        return " >= ";
    }
    return {};
}

/// A compound inside of anything stands in parentheses, so that the tree keeps its shape.
void printPart(const Node& node, std::string& out) {
    const bool isCompound = std::holds_alternative<Compound>(node.content);
    if (isCompound) out += '(';
    print(node, out);
    if (isCompound) out += ')';
}

void print(const Node& node, std::string& out) {
    std::visit(Overloaded{
                   [&](const Constant& constant) { out += constant.value ? "TRUEPREDICATE" : "FALSEPREDICATE"; },
                   [&](const Comparison& comparison) {
                       printExpression(comparison.left, out);
                       out += symbolOf(comparison.op);
                       printExpression(comparison.right, out);
                   },
                   [&](const Compound& compound) {
                       for (std::size_t i = 0; i < compound.parts.size(); ++i) {
                           if (i) out += compound.kind == Compound::Kind::And ? " AND " : " OR ";
                           printPart(*compound.parts[i], out);
                       }
                   },
                   [&](const Not& negation) {
                       out += "NOT ";
                       printPart(*negation.part, out);
                   },
               },
               node.content);
}

} // namespace
} // namespace predicate

std::string Predicate::predicateFormat() const {
    std::string out;
    predicate::print(*m_root, out);
    return out;
}

} // namespace ledgerfinch
