// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/RecordReader.h"

#include <algorithm>
#include <cmath>

namespace ledgerfinch::decoding {
namespace {

/// How much of a date that doesn't parse is shown.
constexpr std::size_t kShownDateBytes = 40;

} // namespace

bool read(Cursor& cursor, Value value, std::string& out) {
    std::string_view text;
    if (const auto error = value.get_string().get(text)) return cursor.fail(error, "a text");
    out.assign(text);
    return true;
}

bool read(Cursor& cursor, Value value, std::int64_t& out) {
    if (value.get_int64().get(out) == simdjson::SUCCESS) return true;
    // 1.0 and 1e3 are integers too. Digits alone that didn't fit stay refused: a double would round them into range.
    const std::string_view token = withoutTrailingSpace(value.raw_json_token());
    double number = 0;
    if (token.find_first_of(".eE") != std::string_view::npos && isJsonNumber(token) &&
        value.get_double().get(number) == simdjson::SUCCESS && std::trunc(number) == number && number >= -0x1p63 &&
        number < 0x1p63) {
        out = static_cast<std::int64_t>(number);
        return true;
    }
    return cursor.fail("an integer of 64 bits was expected");
}

bool read(Cursor& cursor, Value value, bool& out) {
    if (const auto error = value.get_bool().get(out)) return cursor.fail(error, "true or false");
    return true;
}

bool isNull(Value& value) {
    bool null = false;
    return value.is_null().get(null) == simdjson::SUCCESS && null;
}

bool readKey(Cursor& cursor, simdjson::ondemand::field& field, std::string_view& key) {
    // Nearly every key is plain and can be compared where it stands.
    const char* start = field.key().raw();
    const char* end = start;
    while (*end != '"' && *end != '\\')
        ++end;
    if (*end == '"') {
        key = {start, static_cast<std::size_t>(end - start)};
        return true;
    }
    if (const auto error = field.unescaped_key().get(key)) return cursor.fail(error, "a key");
    return true;
}

bool readDate(Cursor& cursor, Value value, DateParser parse, Timestamp& out) {
    std::string_view text;
    if (const auto error = value.get_string().get(text)) return cursor.fail(error, "a date");
    if (const auto time = parse(text)) {
        out = *time;
        return true;
    }
    return cursor.fail("Invalid date: " + std::string(text.substr(0, kShownDateBytes)));
}

} // namespace ledgerfinch::decoding
