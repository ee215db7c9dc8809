// SPDX-License-Identifier: GPL-3.0-or-later
#include "replay/Comparison.h"

#include <algorithm>
#include <set>

namespace ledgerfinch::replay {

namespace {

/// Depend on files that are made anew, or on a search engine of another kind.
const std::set<std::string> onlyTyped{"original_size", "archive_size",     "archive_checksum",  "score",
                                      "highlights",    "duration_seconds", "wait_time_seconds", "traceback"};
/// Come in the order of a hash table or of the database's mood.
const std::set<std::string> unordered{"inherited_permissions",    "user_permissions", "permissions", "users", "groups",
                                      "document_file_type_counts"};
/// Random.
const std::set<std::string> renamed{"slug", "task_id", "token", "id", ""};

/// Goes on with the seconds left.
constexpr std::string_view throttled = "Request was throttled. Expected available in ";

std::string lastKey(const std::string& path) {
    auto dot = path.rfind('.');
    return dot == std::string::npos ? path : path.substr(dot + 1);
}

std::string shown(const Json& json) {
    auto text = json.dump(-1, ' ', false, Json::error_handler_t::replace);
    return text.size() > 160 ? text.substr(0, 160) + "…" : text;
}

bool isShortened(const Json& json) {
    return json.is_object() && json.size() == 1 && json.contains("$long");
}

std::vector<std::string> keysOf(const Json& json) {
    std::vector<std::string> keys;
    for (const auto& [key, value] : json.items())
        keys.push_back(key);
    return keys;
}

bool isRandomText(const std::string& text) {
    auto isUuid = text.size() == 36 && text[8] == '-' && text[13] == '-';
    return isUuid || text.size() == 50 || text.size() == 40 || text.size() == 16;
}

} // namespace

void Comparison::differ(const std::string& path, const Json& expected, const Json& actual) {
    constexpr std::size_t enough = 6;
    if (differences.size() < enough)
        differences.push_back(path + ": expected " + shown(expected) + ", got " + shown(actual));
}

bool Comparison::isSameText(const std::string& expected, const std::string& actual, const std::string& key) {
    if (expected == actual || onlyShape) return true;
    if (renamings != nullptr) {
        auto known = std::find_if(renamings->begin(), renamings->end(),
                                  [&](const auto& renaming) { return renaming.first == expected; });
        if (known != renamings->end()) return known->second == actual;
    }
    if (expected.starts_with(throttled) && actual.starts_with(throttled)) return true;
    auto wanted = expected.size() > 10 ? support::parseTime(expected) : std::nullopt;
    if (wanted && *wanted >= now) {
        auto got = support::parseTime(actual);
        return got && *got >= now;
    }
    if (renamed.contains(key) && isRandomText(expected) && expected.size() == actual.size()) {
        if (renamings != nullptr) renamings->emplace_back(expected, actual);
        return true;
    }
    return false;
}

void Comparison::compareObjects(const Json& expected, const Json& actual, const std::string& path) {
    auto wanted = keysOf(expected), got = keysOf(actual);
    if (wanted != got) {
        differ(path + " keys", Json(wanted), Json(got));
        return;
    }
    for (const auto& [key, value] : expected.items())
        compare(value, actual[key], path + "." + key);
}

void Comparison::compareArrays(Json expected, Json actual, const std::string& path) {
    if (onlyShape) {
        for (std::size_t index = 0; !expected.empty() && index < actual.size(); ++index)
            compare(expected[0], actual[index], path + "[" + std::to_string(index) + "]");
        return;
    }
    if (expected.size() != actual.size()) {
        differ(path + " length " + std::to_string(expected.size()) + " / " + std::to_string(actual.size()), expected,
               actual);
        return;
    }
    auto key = lastKey(path);
    if (isSearch && path == ".results") {
        for (std::size_t index = 0; index < expected.size(); ++index) {
            if (keysOf(expected[index]) != keysOf(actual[index])) differ(path, expected[index], actual[index]);
        }
        return;
    }
    if ((isSearch && path == ".all") || unordered.contains(key) || key.starts_with("selected_")) {
        std::sort(expected.begin(), expected.end());
        std::sort(actual.begin(), actual.end());
    }
    for (std::size_t index = 0; index < expected.size(); ++index)
        compare(expected[index], actual[index], path + "[" + std::to_string(index) + "]");
}

void Comparison::compare(const Json& expected, const Json& actual, const std::string& path) {
    if (onlyTyped.contains(lastKey(path)) && expected.is_number() && actual.is_number()) return;
    // A custom field's value is of any type.
    if (onlyShape && (expected.is_null() || actual.is_null() || lastKey(path) == "value")) return;
    if (isShortened(expected)) {
        if (onlyShape && actual.is_string()) return;
        const auto& mark = expected["$long"];
        auto same = actual.is_string() && actual.get_ref<const std::string&>().size() == mark[0].get<std::size_t>() &&
                    support::sha1Hex(actual.get_ref<const std::string&>()) == mark[1].get<std::string>();
        if (!same && !(onlyTyped.contains(lastKey(path)) && actual.is_string())) differ(path, expected, actual);
        return;
    }
    auto bothNumbers =
        expected.is_number() && actual.is_number() && expected.is_number_float() == actual.is_number_float();
    if (expected.type() != actual.type() && !bothNumbers) {
        differ(path, expected, actual);
        return;
    }
    auto key = lastKey(path);
    if (onlyTyped.contains(key)) return;
    if (expected.is_object()) {
        compareObjects(expected, actual, path);
    } else if (expected.is_array()) {
        compareArrays(expected, actual, path);
    } else if (expected.is_string()) {
        if (!isSameText(expected.get<std::string>(), actual.get<std::string>(), key)) differ(path, expected, actual);
    } else if (expected != actual && !onlyShape) {
        differ(path, expected, actual);
    }
}

} // namespace ledgerfinch::replay
