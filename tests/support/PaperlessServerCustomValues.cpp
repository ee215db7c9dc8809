// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerCustomValues.h"

#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>
#include <limits>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t longestText = 128;

CheckedValue good(Json value) {
    return {std::move(value), {}, false};
}
CheckedValue bad(std::string error) {
    return {{}, std::move(error), false};
}
CheckedValue crash() {
    return {{}, {}, true};
}

CheckedValue checkText(const Json& value) {
    if (!value.is_string()) return crash();
    auto length = textLength(value.get_ref<const std::string&>());
    if (length > longestText)
        return bad("Ensure this value has at most 128 characters (it has " + std::to_string(length) + ").");
    return good(value);
}

CheckedValue checkUrl(const Json& value) {
    if (!value.is_string()) return crash();
    const auto& url = value.get_ref<const std::string&>();
    auto colon = url.find(':');
    if (colon == std::string::npos || colon == 0) return bad("Unable to parse URI " + url + ", missing scheme");
    if (colon + 1 == url.size()) return bad("Unable to parse URI " + url + ", missing netloc or path");
    return good(value);
}

CheckedValue checkDate(const Json& value) {
    if (value.is_string() && isDate(value.get_ref<const std::string&>())) return good(value);
    return bad("Date has wrong format. Use one of these formats instead: YYYY-MM-DD.");
}

CheckedValue checkInteger(const Json& value) {
    auto number = keyNumber(value);
    if (!number) return bad("Enter a valid integer.");
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    constexpr std::int64_t least = std::numeric_limits<std::int32_t>::min();
    if (*number > most) return bad("Ensure this value is less than or equal to " + std::to_string(most) + ".");
    if (*number < least) return bad("Ensure this value is greater than or equal to " + std::to_string(least) + ".");
    return good(*number);
}

/// An optional currency code, a sign, digits and at most two decimals.
bool isMonetary(std::string_view text) {
    if (text.size() >= 3 && std::all_of(text.begin(), text.begin() + 3, [](char c) { return c >= 'A' && c <= 'Z'; }))
        text.remove_prefix(3);
    if (text.starts_with('-')) text.remove_prefix(1);
    auto digits = std::min(text.find_first_not_of("0123456789"), text.size());
    if (digits == 0) return false;
    text.remove_prefix(digits);
    if (text.empty()) return true;
    return text.front() == '.' && (text.size() == 2 || text.size() == 3) &&
           text.find_first_not_of("0123456789", 1) == std::string_view::npos;
}

CheckedValue checkMonetary(const Json& value) {
    auto text = value.is_string() ? value.get<std::string>() : value.dump();
    if (!isMonetary(text)) return bad("Must be a two-decimal number with optional currency code e.g. GBP123.45");
    return good(text);
}

CheckedValue checkLinks(const State& state, const Json& value) {
    if (!value.is_array()) return bad("Value must be a list");
    std::vector<Id> ids;
    for (const auto& one : value) {
        auto id = keyNumber(one);
        if (!id || state.liveDocument(*id) == nullptr || std::find(ids.begin(), ids.end(), *id) != ids.end())
            return bad("Some documents in value don't exist or were specified twice.");
        ids.push_back(*id);
    }
    return good(ids);
}

CheckedValue checkSelect(const CustomField& field, const Json& value, const ApiShape& api) {
    const auto& options = field.options;
    if (api.hasOptionIds) {
        auto matches = [&](const SelectOption& option) {
            return value == Json(option.id);
        };
        if (std::any_of(options.begin(), options.end(), matches)) return good(value);
        std::string list;
        for (const auto& option : options) {
            list += (list.empty() ? "{'id': '" : ", {'id': '") + option.id + "', 'label': '" +
                    (option.label.is_string() ? option.label.get<std::string>() : option.label.dump()) + "'}";
        }
        return bad("Value must be an id of an element in [" + list + "]");
    }
    if (!value.is_number_integer()) return crash();
    auto count = std::int64_t(options.size());
    auto index = value.get<std::int64_t>();
    // A negative index counts from the end, as Python's do.
    if (index < 0) index += count;
    if (index < 0 || index >= count) return crash();
    return good(options[std::size_t(index)].id);
}

CustomFieldValue* valueOf(Document& document, Id field) {
    auto found = std::find_if(document.customFields.begin(), document.customFields.end(),
                              [&](const auto& value) { return value.field == field; });
    return found == document.customFields.end() ? nullptr : &*found;
}

std::vector<Id> linksIn(const Json& value) {
    return value.is_array() ? value.get<std::vector<Id>>() : std::vector<Id>{};
}

void addBackLink(State& state, Id target, Id field, Id source) {
    auto* document = state.liveDocument(target);
    if (document == nullptr || target == source) return;
    auto* value = valueOf(*document, field);
    if (value == nullptr) value = &document->customFields.emplace_back(CustomFieldValue{field, Json::array()});
    auto links = linksIn(value->value);
    if (std::find(links.begin(), links.end(), source) == links.end()) links.push_back(source);
    value->value = links;
    document->modified = state.now();
}

void removeBackLink(State& state, Id target, Id field, Id source) {
    auto* document = state.liveDocument(target);
    if (document == nullptr || target == source) return;
    auto* value = valueOf(*document, field);
    if (value == nullptr) return;
    auto links = linksIn(value->value);
    std::erase(links, source);
    value->value = links;
    document->modified = state.now();
}

void mirrorLinks(State& state, Id field, Id source, const Json& before, const Json& after) {
    auto old = linksIn(before);
    auto now = linksIn(after);
    for (auto target : old) {
        if (std::find(now.begin(), now.end(), target) == now.end()) removeBackLink(state, target, field, source);
    }
    for (auto target : now) {
        if (std::find(old.begin(), old.end(), target) == old.end()) addBackLink(state, target, field, source);
    }
}

} // namespace

const std::vector<std::string_view>& dataTypes(const Release& release) {
    static const std::vector<std::string_view> types{"string", "url",      "date",         "boolean", "integer",
                                                     "float",  "monetary", "documentlink", "select",  "longtext"};
    static const std::vector<std::string_view> first(types.begin(), types.end() - 2);
    return release.hasRichFields ? types : first;
}

/// The checks of the oldest release: fewer, and some of them are exceptions that nobody catches.
std::optional<CheckedValue> checkOfTwoSeven(const State& state, const std::string& type, const Json& value) {
    if (type == "date" && !checkDate(value).error.empty()) return crash();
    if (type == "documentlink" && !checkLinks(state, value).error.empty()) return crash();
    if (type == "integer" && keyNumber(value)) return good(*keyNumber(value));
    if (type == "monetary" && value.is_string() && value.get_ref<const std::string&>().find('-') != std::string::npos)
        return bad("Must be a two-decimal number with optional currency code e.g. GBP123.45");
    if (type != "url") return std::nullopt;
    auto checked = checkUrl(value);
    return checked.error.empty() ? checked : bad(checked.error.substr(0, checked.error.find(',')));
}

CheckedValue checkCustomValue(const State& state, const CustomField& field, const Json& value, const ApiShape& api) {
    if (value.is_null()) return good(nullptr);
    const auto& type = field.dataType;
    if (!state.release.hasRichFields) {
        if (auto checked = checkOfTwoSeven(state, type, value)) return *checked;
    }
    if (type == "url") return checkUrl(value);
    if (type == "date") return checkDate(value);
    if (type == "boolean") return value.is_boolean() ? good(value) : crash();
    if (type == "integer") return checkInteger(value);
    if (type == "float") return value.is_number() ? good(value.get<double>()) : crash();
    if (type == "monetary") return checkMonetary(value);
    if (type == "documentlink") return checkLinks(state, value);
    if (type == "select") return checkSelect(field, value, api);
    if (type == "longtext") return value.is_string() ? good(value) : crash();
    return checkText(value);
}

CheckedValues checkCustomValues(const State& state, const Json& list, const ApiShape& api) {
    CheckedValues checked;
    if (!list.is_array()) {
        auto text = "Expected a list of items but got type \"" + std::string(typeName(list)) + "\".";
        checked.errors = Json{{"non_field_errors", Json::array({text})}};
        return checked;
    }
    auto errors = Json::array();
    auto failed = false;
    for (const auto& entry : list) {
        BodyReader reader(entry, false);
        OptionalId fieldId;
        reader.relation("field", fieldId, existsIn(state.customFields), true, false);
        const auto* value = reader.find("value");
        if (value == nullptr) reader.fail("value", "This field is required.");
        if (reader.failed()) {
            errors.push_back(Json::parse(reader.errors().body));
            failed = true;
            continue;
        }
        auto one = checkCustomValue(state, state.customFields.at(*fieldId), *value, api);
        if (one.crashes) checked.crashes = true;
        if (!one.error.empty()) {
            errors.push_back(Json{{"non_field_errors", Json::array({one.error})}});
            failed = true;
        } else {
            errors.push_back(Json::object());
            checked.values.push_back({*fieldId, std::move(one.value)});
        }
    }
    if (failed) checked.errors = std::move(errors);
    return checked;
}

void storeCustomValues(State& state, Document& document, const std::vector<CustomFieldValue>& values) {
    auto before = document.customFields;
    for (const auto& given : values) {
        if (auto* present = valueOf(document, given.field)) {
            present->value = given.value;
        } else {
            document.customFields.push_back(given);
        }
    }
    std::erase_if(document.customFields, [&](const CustomFieldValue& value) {
        return std::none_of(values.begin(), values.end(),
                            [&](const auto& given) { return given.field == value.field; });
    });
    auto isLink = [&](Id field) {
        auto found = state.customFields.find(field);
        return found != state.customFields.end() && found->second.dataType == "documentlink";
    };
    for (const auto& old : before) {
        if (!isLink(old.field)) continue;
        const auto* now = valueOf(document, old.field);
        mirrorLinks(state, old.field, document.id, old.value, now == nullptr ? Json() : now->value);
    }
    for (const auto& now : std::vector(document.customFields)) {
        auto isNew =
            std::none_of(before.begin(), before.end(), [&](const auto& old) { return old.field == now.field; });
        if (isNew && isLink(now.field)) mirrorLinks(state, now.field, document.id, Json(), now.value);
    }
}

} // namespace ledgerfinch::support
