// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerValidation.h"

#include <algorithm>
#include <charconv>

namespace ledgerfinch::support {

namespace {

/// The text of a scalar, as a character field takes it.
std::optional<std::string> scalarText(const Json& value) {
    if (value.is_string()) return value.get<std::string>();
    if (value.is_number()) return value.dump();
    return std::nullopt;
}

std::string plainText(const Json& value) {
    return value.is_string() ? value.get<std::string>() : textOf(value);
}

std::optional<std::vector<Id>> readIds(const Json& action, const char* key, const std::function<bool(Id)>& exists) {
    std::vector<Id> ids;
    auto list = action.find(key);
    if (list == action.end() || !list->is_array()) return ids;
    for (const auto& one : *list) {
        auto id = keyNumber(one);
        if (!id || !exists(*id) || std::find(ids.begin(), ids.end(), *id) != ids.end()) return std::nullopt;
        ids.push_back(*id);
    }
    return ids;
}

} // namespace

std::string_view typeName(const Json& value) {
    if (value.is_string()) return "str";
    if (value.is_boolean()) return "bool";
    if (value.is_number_integer()) return "int";
    if (value.is_number()) return "float";
    if (value.is_array()) return "list";
    if (value.is_object()) return "dict";
    return "NoneType";
}

OptionalId keyNumber(const Json& value) {
    if (value.is_number_integer()) return value.get<Id>();
    if (!value.is_string()) return std::nullopt;
    const auto& text = value.get_ref<const std::string&>();
    Id number = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() ? OptionalId(number) : std::nullopt;
}

std::string invalidKeyText(const Json& key) {
    return "Invalid pk \"" + plainText(key) + "\" - object does not exist.";
}

const Json* BodyReader::find(std::string_view key) const {
    if (!m_body.is_object()) return nullptr;
    auto found = m_body.find(std::string(key));
    return found == m_body.end() ? nullptr : &*found;
}

void BodyReader::fail(std::string_view key, std::string text) {
    m_errors[std::string(key)] = Json::array({std::move(text)});
}

const Json* BodyReader::take(std::string_view key, bool required, bool nullable) {
    const auto* value = find(key);
    if (value == nullptr) {
        if (required && !m_partial) fail(key, "This field is required.");
        return nullptr;
    }
    if (value->is_null() && !nullable) {
        fail(key, "This field may not be null.");
        return nullptr;
    }
    return value;
}

bool BodyReader::text(std::string_view key, std::string& target, const TextRule& rule) {
    const auto* value = take(key, rule.required, false);
    if (value == nullptr) return false;
    auto read = scalarText(*value);
    if (!read) {
        fail(key, "Not a valid string.");
        return false;
    }
    if (read->empty() && !rule.mayBeBlank) {
        fail(key, "This field may not be blank.");
        return false;
    }
    if (rule.longest > 0 && textLength(*read) > rule.longest) {
        fail(key, "Ensure this field has no more than " + std::to_string(rule.longest) + " characters.");
        return false;
    }
    target = std::move(*read);
    return true;
}

bool BodyReader::optionalText(std::string_view key, std::optional<std::string>& target, std::size_t longest) {
    const auto* value = find(key);
    if (value != nullptr && value->is_null()) {
        target.reset();
        return true;
    }
    std::string read;
    if (!text(key, read, {.longest = longest})) return false;
    target = std::move(read);
    return true;
}

bool BodyReader::boolean(std::string_view key, bool& target, bool required) {
    const auto* value = take(key, required, false);
    if (value == nullptr) return false;
    auto word = lowerAscii(plainText(*value));
    if (word == "true" || word == "1") {
        target = true;
    } else if (word == "false" || word == "0") {
        target = false;
    } else {
        fail(key, "Must be a valid boolean.");
        return false;
    }
    return true;
}

bool BodyReader::integer(std::string_view key, std::optional<std::int64_t>& target, std::int64_t least,
                         std::int64_t most) {
    const auto* value = take(key, false, true);
    if (value == nullptr) return false;
    if (value->is_null() || (value->is_string() && value->get_ref<const std::string&>().empty())) {
        target.reset();
        return true;
    }
    auto number = keyNumber(*value);
    if (!number) {
        fail(key, "A valid integer is required.");
        return false;
    }
    if (*number < least) {
        fail(key, "Ensure this value is greater than or equal to " + std::to_string(least) + ".");
        return false;
    }
    if (*number > most) {
        fail(key, "Ensure this value is less than or equal to " + std::to_string(most) + ".");
        return false;
    }
    target = number;
    return true;
}

bool BodyReader::choice(std::string_view key, std::int64_t& target, std::int64_t least, std::int64_t most) {
    const auto* value = take(key, false, false);
    if (value == nullptr) return false;
    auto number = keyNumber(*value);
    if (!number || *number < least || *number > most) {
        fail(key, "\"" + plainText(*value) + "\" is not a valid choice.");
        return false;
    }
    target = *number;
    return true;
}

bool BodyReader::choice(std::string_view key, std::string& target, const std::vector<std::string_view>& choices,
                        bool required) {
    const auto* value = take(key, required, false);
    if (value == nullptr) return false;
    auto word = plainText(*value);
    if (std::find(choices.begin(), choices.end(), word) == choices.end()) {
        fail(key, "\"" + word + "\" is not a valid choice.");
        return false;
    }
    target = std::move(word);
    return true;
}

bool BodyReader::relation(std::string_view key, OptionalId& target, const std::function<bool(Id)>& exists,
                          bool required, bool nullable) {
    const auto* value = take(key, required, nullable);
    if (value == nullptr) return false;
    if (value->is_null() || (value->is_string() && value->get_ref<const std::string&>().empty())) {
        target.reset();
        return true;
    }
    auto id = keyNumber(*value);
    if (!id) {
        fail(key, "Incorrect type. Expected pk value, received " + std::string(typeName(*value)) + ".");
        return false;
    }
    if (!exists(*id)) {
        fail(key, invalidKeyText(*value));
        return false;
    }
    target = id;
    return true;
}

bool BodyReader::relations(std::string_view key, std::vector<Id>& target, const std::function<bool(Id)>& exists,
                           bool required) {
    const auto* value = take(key, required, false);
    if (value == nullptr) return false;
    if (!value->is_array()) {
        fail(key, "Expected a list of items but got type \"" + std::string(typeName(*value)) + "\".");
        return false;
    }
    std::vector<Id> ids;
    for (const auto& one : *value) {
        auto id = keyNumber(one);
        if (!id) {
            fail(key, "Incorrect type. Expected pk value, received " + std::string(typeName(one)) + ".");
            return false;
        }
        if (!exists(*id)) {
            fail(key, invalidKeyText(one));
            return false;
        }
        if (std::find(ids.begin(), ids.end(), *id) == ids.end()) ids.push_back(*id);
    }
    target = std::move(ids);
    return true;
}

bool BodyReader::time(std::string_view key, std::optional<Micros>& target) {
    const auto* value = find(key);
    if (value == nullptr) return false;
    if (value->is_null()) {
        target.reset();
        return true;
    }
    auto read = value->is_string() ? parseTime(value->get_ref<const std::string&>()) : std::nullopt;
    if (!read) {
        fail(key, "Datetime has wrong format. Use one of these formats instead: "
                  "YYYY-MM-DDThh:mm[:ss[.uuuuuu]][+HH:MM|-HH:MM|Z].");
        return false;
    }
    target = read;
    return true;
}

bool BodyReader::permissions(const State& state, ObjectPermissions& target) {
    const auto* value = take("set_permissions", false, false);
    if (value == nullptr) return false;
    if (!value->is_object()) {
        fail("set_permissions",
             "Expected a dictionary of items but got type \"" + std::string(typeName(*value)) + "\".");
        return false;
    }
    ObjectPermissions read;
    for (const char* action : {"view", "change"}) {
        auto found = value->find(action);
        if (found == value->end() || !found->is_object()) continue;
        auto users = readIds(*found, "users", existsIn(state.users));
        auto groups = readIds(*found, "groups", existsIn(state.groups));
        if (!users || !groups) {
            fail("set_permissions",
                 std::string("Some ") + (users ? "groups" : "users") + " in don't exist or were specified twice.");
            return false;
        }
        auto isView = std::string_view(action) == "view";
        (isView ? read.viewUsers : read.changeUsers) = std::move(*users);
        (isView ? read.viewGroups : read.changeGroups) = std::move(*groups);
    }
    read.normalise();
    target = std::move(read);
    return true;
}

} // namespace ledgerfinch::support
