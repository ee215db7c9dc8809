// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/RecordReader.h"

#include <algorithm>
#include <cmath>

namespace ledgerfinch::decoding {
namespace {

/// How much of a date that doesn't parse is shown.
constexpr std::size_t kShownDateBytes = 40;

} // namespace

bool readIntegralNumber(Cursor& cursor, Value& value, std::int64_t& out) {
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

bool readDate(Cursor& cursor, Value& value, DateParser parse, Timestamp& out) {
    std::string_view text;
    if (!cursor.text(value, "a date", text)) return false;
    if (const auto time = parse(text)) {
        out = *time;
        return true;
    }
    return cursor.fail("Invalid date: " + std::string(text.substr(0, kShownDateBytes)));
}

} // namespace ledgerfinch::decoding
