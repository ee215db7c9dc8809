// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/Predicate.h"
#include "objectstore/PredicateNode.h"
#include "platform/Dates.h"

#include <charconv>
#include <cmath>
#include <optional>

namespace ledgerfinch {
namespace predicate {
namespace {

constexpr std::size_t kMaximumLength = 256 * 1024;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isNameStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}
bool isNamePart(char c) {
    return isNameStart(c) || isDigit(c);
}

bool equalsWord(std::string_view text, std::string_view upperWord) {
    if (text.size() != upperWord.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i] >= 'a' && text[i] <= 'z' ? static_cast<char>(text[i] - 'a' + 'A') : text[i];
        if (c != upperWord[i]) return false;
    }
    return true;
}

NodePointer makeNode(decltype(Node::content) content) {
    return std::make_shared<const Node>(Node{std::move(content)});
}

/// Recursive descent over the text:
///
///   or         = and  { ("OR" | "||") and }
///   and        = not  { ("AND" | "&&") not }
///   not        = ("NOT" | "!") not | "(" or ")" | "TRUEPREDICATE" | "FALSEPREDICATE" | comparison
///   comparison = expression operator expression
///   expression = key path | number | date | text in ' or " | nil | true | false | CAST(number, "NSDate") | argument
class Parser {
public:
    Parser(std::string_view text, std::vector<Value> arguments) : m_text(text), m_arguments(std::move(arguments)) {}

    Result<NodePointer> run() {
        if (m_text.size() > kMaximumLength) return failure("the text is too long");
        NodePointer root = parseOr();
        if (root) {
            skipSpace();
            if (m_position < m_text.size()) root = fail("something follows the end");
        }
        if (root && m_nextArgument != m_arguments.size()) root = fail("there are more arguments than places for them");
        if (!root) return failure(m_failure);
        return root;
    }

private:
    Error failure(const std::string& why) const {
        return Error{"The predicate isn't understood at character " + std::to_string(m_position + 1) + ": " + why + ".",
                     static_cast<int>(m_position) + 1};
    }

    std::nullptr_t fail(std::string why) {
        if (m_failure.empty()) m_failure = std::move(why);
        return nullptr;
    }

    void skipSpace() {
        while (m_position < m_text.size() && (m_text[m_position] == ' ' || m_text[m_position] == '\t' ||
                                              m_text[m_position] == '\n' || m_text[m_position] == '\r'))
            ++m_position;
    }

    bool takeSymbol(std::string_view symbol) {
        skipSpace();
        if (m_text.substr(m_position, symbol.size()) != symbol) return false;
        m_position += symbol.size();
        return true;
    }

    /// A whole word, without case.
    bool takeWord(std::string_view upperWord) {
        skipSpace();
        if (!equalsWord(m_text.substr(m_position, upperWord.size()), upperWord)) return false;
        const std::size_t end = m_position + upperWord.size();
        if (end < m_text.size() && (isNamePart(m_text[end]) || m_text[end] == '.')) return false;
        m_position = end;
        return true;
    }

    /// Counts the nesting as long as it lives.
    struct Depth {
        explicit Depth(int& depth) : value(depth) { ++value; }
        ~Depth() { --value; }
        Depth(const Depth&) = delete;
        Depth& operator=(const Depth&) = delete;
        int& value;
    };

    template <class ParsePart, class TakeJoint>
    NodePointer parseCompound(Compound::Kind kind, ParsePart parsePart, TakeJoint takeJoint) {
        NodePointer first = parsePart();
        if (!first) return nullptr;
        Compound compound{kind, {first}};
        while (takeJoint()) {
            NodePointer next = parsePart();
            if (!next) return nullptr;
            compound.parts.push_back(std::move(next));
        }
        return compound.parts.size() == 1 ? first : makeNode(std::move(compound));
    }

    NodePointer parseOr() {
        return parseCompound(
            Compound::Kind::Or, [this] { return parseAnd(); }, [this] { return takeSymbol("||") || takeWord("OR"); });
    }

    NodePointer parseAnd() {
        return parseCompound(
            Compound::Kind::And, [this] { return parseNot(); }, [this] { return takeSymbol("&&") || takeWord("AND"); });
    }

    NodePointer parseNot() {
        const Depth depth(m_depth);
        if (m_depth > kMaximumDepth) return fail("it is nested too deeply");
        skipSpace();
        if (takeWord("NOT") || (m_text.substr(m_position, 2) != "!=" && takeSymbol("!"))) {
            NodePointer part = parseNot();
            return part ? makeNode(Not{std::move(part)}) : nullptr;
        }
        if (takeSymbol("(")) {
            NodePointer inner = parseOr();
            if (!inner) return nullptr;
            return takeSymbol(")") ? inner : fail("\")\" is missing");
        }
        if (takeWord("TRUEPREDICATE")) return makeNode(Constant{true});
        if (takeWord("FALSEPREDICATE")) return makeNode(Constant{false});
        return parseComparison();
    }

    NodePointer parseComparison() {
        auto node = std::make_shared<Node>();
        Comparison& comparison = node->content.emplace<Comparison>();
        if (!parseExpression(comparison.left)) return nullptr;
        const auto op = parseOperator();
        if (!op) return fail("an operator is missing");
        comparison.op = *op;
        if (!parseExpression(comparison.right)) return nullptr;
        return node;
    }

    std::optional<Operator> parseOperator() {
        if (takeSymbol("==")) return Operator::Equal;
        if (takeSymbol("=>") || takeSymbol(">=")) return Operator::GreaterOrEqual;
        if (takeSymbol("=<") || takeSymbol("<=")) return Operator::LessOrEqual;
        if (takeSymbol("!=") || takeSymbol("<>")) return Operator::NotEqual;
        if (takeSymbol("=")) return Operator::Equal;
        if (takeSymbol("<")) return Operator::Less;
        if (takeSymbol(">")) return Operator::Greater;
        return std::nullopt;
    }

    static bool setLiteral(Expression& out, Value value) {
        out.emplace<Literal>().value = std::move(value);
        return true;
    }

    bool parseExpression(Expression& out) {
        skipSpace();
        if (m_position >= m_text.size()) return failExpression("it ends too early");
        const char c = m_text[m_position];
        if (c == '\'' || c == '"') {
            auto text = parseText();
            return text && setLiteral(out, std::move(*text));
        }
        if (c == '%') return parseArgument(out);
        if (isDigit(c) || c == '-' || c == '+') return parseNumberOrDate(out);
        if (takeWord("NIL") || takeWord("NULL")) return setLiteral(out, {});
        if (takeWord("TRUE") || takeWord("YES")) return setLiteral(out, true);
        if (takeWord("FALSE") || takeWord("NO")) return setLiteral(out, false);
        if (isNameStart(c)) {
            const std::size_t start = m_position;
            if (takeWord("CAST") && takeSymbol("(")) return parseCast(out);
            m_position = start;
            return parseKeyPath(out.emplace<KeyPath>());
        }
        return failExpression("a value is missing");
    }

    bool failExpression(std::string why) {
        fail(std::move(why));
        return false;
    }

    /// Quoted by ' or "; a backslash takes the next character as it stands, \n, \t and \r are controls.
    std::optional<std::string> parseText() {
        const char quote = m_text[m_position++];
        std::string text;
        while (m_position < m_text.size()) {
            char c = m_text[m_position++];
            if (c == quote) return text;
            if (c == '\\') {
                if (m_position >= m_text.size()) break;
                c = m_text[m_position++];
                c = c == 'n' ? '\n' : c == 't' ? '\t' : c == 'r' ? '\r' : c;
            }
            text += c;
        }
        failExpression("a text isn't closed");
        return std::nullopt;
    }

    bool parseArgument(Expression& out) {
        ++m_position;
        constexpr std::string_view kForms[] = {"lld", "ld", "d", "i", "u", "lf", "f", "@"};
        for (const std::string_view form : kForms) {
            if (m_text.substr(m_position, form.size()) != form) continue;
            if (m_nextArgument >= m_arguments.size()) return failExpression("an argument is missing");
            m_position += form.size();
            return argumentLiteral(out, std::move(m_arguments[m_nextArgument++]));
        }
        return failExpression("the place for an argument isn't known");
    }

    /// Identifiers and bytes become texts, so that every tree can be written down.
    bool argumentLiteral(Expression& out, Value value) {
        if (const auto* real = std::get_if<double>(&value); real && !std::isfinite(*real))
            return failExpression("an argument is no finite number");
        if (const auto* uuid = std::get_if<Uuid>(&value)) return setLiteral(out, uuid->text());
        if (auto* blob = std::get_if<Blob>(&value)) return setLiteral(out, std::move(blob->bytes));
        return setLiteral(out, std::move(value));
    }

    bool parseNumberOrDate(Expression& out) {
        if (const auto date = parseBareDate()) return setLiteral(out, *date);
        auto number = parseNumber();
        if (!number) return failExpression("a number isn't understood");
        return setLiteral(out, std::move(*number));
    }

    /// 2024-03-01 or 2024-03-01T12:30:00Z without quotes.
    std::optional<Timestamp> parseBareDate() {
        const std::string_view rest = m_text.substr(m_position);
        if (rest.size() < 10 || rest[4] != '-' || rest[7] != '-') return std::nullopt;
        std::size_t length = 10;
        while (length < rest.size() &&
               (isDigit(rest[length]) || std::string_view("T:.+-Z").find(rest[length]) != std::string_view::npos))
            ++length;
        const std::string_view text = rest.substr(0, length);
        auto time = dates::parseDateTime(text);
        if (!time) time = dates::parseDateOnly(text);
        if (time) m_position += length;
        return time;
    }

    std::optional<Value> parseNumber() {
        std::size_t end = m_position;
        if (m_text[end] == '-' || m_text[end] == '+') ++end;
        const std::size_t digits = end;
        bool isReal = false;
        while (end < m_text.size()) {
            const char c = m_text[end];
            const bool isExponentSign = (c == '-' || c == '+') && (m_text[end - 1] == 'e' || m_text[end - 1] == 'E');
            if (c == '.' || c == 'e' || c == 'E' || isExponentSign)
                isReal = true;
            else if (!isDigit(c))
                break;
            ++end;
        }
        if (end == digits) return std::nullopt;
        if (end < m_text.size() && isNamePart(m_text[end])) return std::nullopt;
        const char* first = m_text.data() + (m_text[m_position] == '+' ? digits : m_position);
        const char* last = m_text.data() + end;
        if (!isReal) {
            std::int64_t integer = 0;
            const auto parsed = std::from_chars(first, last, integer);
            if (parsed.ec == std::errc() && parsed.ptr == last) {
                m_position = end;
                return integer;
            }
        }
        double real = 0;
        const auto parsed = std::from_chars(first, last, real);
        if (parsed.ec != std::errc() || parsed.ptr != last) return std::nullopt;
        m_position = end;
        return real;
    }

    /// After "CAST(": seconds since the reference date.
    bool parseCast(Expression& out) {
        skipSpace();
        if (m_position >= m_text.size()) return failExpression("it ends too early");
        auto number = parseNumber();
        if (!number) return failExpression("a number is missing");
        skipSpace();
        if (!takeSymbol(",")) return failExpression("\",\" is missing");
        skipSpace();
        if (!takeSymbol("\"NSDate\"") && !takeSymbol("'NSDate'")) return failExpression("only NSDate can be cast to");
        if (!takeSymbol(")")) return failExpression("\")\" is missing");
        const double seconds = std::holds_alternative<double>(*number)
                                   ? std::get<double>(*number)
                                   : static_cast<double>(std::get<std::int64_t>(*number));
        if (!(seconds > -1e11 && seconds < 1e11)) return failExpression("a date is out of range");
        return setLiteral(out, dates::fromSecondsSinceReferenceDate(seconds));
    }

    bool parseKeyPath(KeyPath& path) {
        do {
            if (m_position >= m_text.size() || !isNameStart(m_text[m_position]))
                return failExpression("a name is missing");
            const std::size_t start = m_position;
            while (m_position < m_text.size() && isNamePart(m_text[m_position]))
                ++m_position;
            path.names.emplace_back(m_text.substr(start, m_position - start));
        } while (m_position < m_text.size() && m_text[m_position] == '.' && ++m_position);
        return true;
    }

    std::string_view m_text;
    std::vector<Value> m_arguments;
    std::size_t m_position = 0;
    std::size_t m_nextArgument = 0;
    int m_depth = 0;
    std::string m_failure;
};

} // namespace

void collectKeyPaths(const Node& node, std::vector<const KeyPath*>& paths) {
    std::visit(Overloaded{
                   [](const Constant&) {},
                   [&](const Comparison& comparison) {
                       for (const Expression* side : {&comparison.left, &comparison.right})
                           if (const auto* path = std::get_if<KeyPath>(side)) paths.push_back(path);
                   },
                   [&](const Compound& compound) {
                       for (const auto& part : compound.parts)
                           collectKeyPaths(*part, paths);
                   },
                   [&](const Not& negation) { collectKeyPaths(*negation.part, paths); },
               },
               node.content);
}

} // namespace predicate

using predicate::makeNode;

Result<Predicate> Predicate::parse(std::string_view format, std::vector<Value> arguments) {
    auto root = predicate::Parser(format, std::move(arguments)).run();
    if (!root) return root.error();
    return Predicate(std::move(*root));
}

namespace {
std::shared_ptr<const predicate::Node> join(predicate::Compound::Kind kind,
                                            std::vector<std::shared_ptr<const predicate::Node>> parts) {
    if (parts.size() == 1) return std::move(parts.front());
    return makeNode(predicate::Compound{kind, std::move(parts)});
}
} // namespace

Predicate Predicate::allOf(std::vector<Predicate> parts) {
    if (parts.empty()) return Predicate(makeNode(predicate::Constant{true}));
    std::vector<predicate::NodePointer> nodes;
    for (auto& part : parts)
        nodes.push_back(std::move(part.m_root));
    return Predicate(join(predicate::Compound::Kind::And, std::move(nodes)));
}

Predicate Predicate::anyOf(std::vector<Predicate> parts) {
    if (parts.empty()) return nothing();
    std::vector<predicate::NodePointer> nodes;
    for (auto& part : parts)
        nodes.push_back(std::move(part.m_root));
    return Predicate(join(predicate::Compound::Kind::Or, std::move(nodes)));
}

Predicate Predicate::nothing() {
    return Predicate(makeNode(predicate::Constant{false}));
}

} // namespace ledgerfinch
