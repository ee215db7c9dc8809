// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerCustomQuery.h"

#include <algorithm>
#include <cstdlib>

namespace ledgerfinch::support {

namespace {

using Predicate = std::function<bool(const Document&)>;

const CustomField* fieldNamed(const State& state, const Json& name) {
    for (const auto& [id, field] : state.customFields) {
        if (name.is_number_integer() ? id == name.get<Id>() : name.is_string() && name == field.name) return &field;
    }
    return nullptr;
}

double numberOf(const Json& value) {
    if (value.is_number()) return value.get<double>();
    if (!value.is_string()) return 0;
    const auto& text = value.get_ref<const std::string&>();
    auto start = text.find_first_of("-0123456789");
    return start == std::string::npos ? 0 : std::strtod(text.c_str() + start, nullptr);
}

/// Negative, zero or positive, as the field's type compares.
int compare(const CustomField& field, const Json& left, const Json& right) {
    auto isNumeric = field.dataType == "monetary" || field.dataType == "integer" || field.dataType == "float";
    if (isNumeric) {
        auto difference = numberOf(left) - numberOf(right);
        return difference < 0 ? -1 : difference > 0 ? 1 : 0;
    }
    if (left.is_string() && right.is_string())
        return left.get_ref<const std::string&>().compare(right.get_ref<const std::string&>());
    return left == right ? 0 : 1;
}

bool containsText(const Json& value, const Json& part) {
    return value.is_string() && part.is_string() &&
           lowerText(value.get<std::string>()).find(lowerText(part.get<std::string>())) != std::string::npos;
}

bool containsAll(const Json& value, const Json& wanted) {
    return value.is_array() && wanted.is_array() && std::all_of(wanted.begin(), wanted.end(), [&](const Json& id) {
               return std::find(value.begin(), value.end(), id) != value.end();
           });
}

bool isTrue(const Json& value) {
    return value == true || value == "true" || value == 1;
}

bool holds(const CustomField& field, const std::string& operation, const Json& value, const Json& wanted) {
    if (operation == "exists") return isTrue(wanted);
    if (operation == "isnull") return value.is_null() == isTrue(wanted);
    if (value.is_null()) return false;
    if (operation == "exact") {
        return field.dataType == "boolean" ? isTrue(value) == isTrue(wanted) : compare(field, value, wanted) == 0;
    }
    if (operation == "in") {
        return wanted.is_array() && std::any_of(wanted.begin(), wanted.end(),
                                                [&](const Json& one) { return compare(field, value, one) == 0; });
    }
    if (operation == "gt") return compare(field, value, wanted) > 0;
    if (operation == "gte") return compare(field, value, wanted) >= 0;
    if (operation == "lt") return compare(field, value, wanted) < 0;
    if (operation == "lte") return compare(field, value, wanted) <= 0;
    if (operation == "range") {
        return wanted.is_array() && wanted.size() == 2 && compare(field, value, wanted[0]) >= 0 &&
               compare(field, value, wanted[1]) <= 0;
    }
    if (operation == "contains") return containsAll(value, wanted);
    return operation == "icontains" && containsText(value, wanted);
}

CustomQuery fault(std::string position, std::string text) {
    return {{}, Json{{std::move(position), Json::array({std::move(text)})}}};
}

CustomQuery parseNode(const State& state, const Json& node);

CustomQuery parseGroup(const State& state, const std::string& word, const Json& members) {
    std::vector<Predicate> predicates;
    for (const auto& member : members) {
        auto parsed = parseNode(state, member);
        if (!parsed.predicate) return parsed;
        predicates.push_back(std::move(parsed.predicate));
    }
    auto any = word == "OR";
    return {[predicates, any](const Document& document) {
                auto test = [&](const Predicate& predicate) {
                    return predicate(document);
                };
                return any ? std::any_of(predicates.begin(), predicates.end(), test)
                           : std::all_of(predicates.begin(), predicates.end(), test);
            },
            nullptr};
}

CustomQuery parseNode(const State& state, const Json& node) {
    if (!node.is_array() || node.size() < 2)
        return fault("custom_field_query", "Invalid custom field query expression");
    if (node.size() == 2 && node[0].is_string()) {
        auto word = node[0].get<std::string>();
        std::transform(word.begin(), word.end(), word.begin(), [](char letter) { return char(std::toupper(letter)); });
        if ((word == "AND" || word == "OR") && node[1].is_array()) return parseGroup(state, word, node[1]);
        if (word == "NOT") {
            auto inner = parseNode(state, node[1]);
            if (!inner.predicate) return inner;
            return {[test = std::move(inner.predicate)](const Document& document) { return !test(document); }, nullptr};
        }
    }
    if (node.size() != 3 || !node[1].is_string())
        return fault("custom_field_query", "Invalid custom field query expression");
    const auto* field = fieldNamed(state, node[0]);
    if (field == nullptr) {
        auto name = node[0].is_string() ? node[0].get<std::string>() : node[0].dump();
        return fault("0", "'" + name + "' is not a valid custom field.");
    }
    auto operation = node[1].get<std::string>();
    return {[field = *field, operation, wanted = node[2]](const Document& document) {
                auto found = std::find_if(document.customFields.begin(), document.customFields.end(),
                                          [&](const auto& value) { return value.field == field.id; });
                if (found == document.customFields.end()) return operation == "exists" && !isTrue(wanted);
                return holds(field, operation, found->value, wanted);
            },
            nullptr};
}

} // namespace

CustomQuery parseCustomQuery(const State& state, const std::string& text) {
    auto json = Json::parse(text, nullptr, false);
    if (json.is_discarded()) return {{}, Json::array({"Value must be valid JSON."})};
    return parseNode(state, json);
}

} // namespace ledgerfinch::support
