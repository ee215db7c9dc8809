// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/RecordReader.h"

#include <charconv>
#include <cstdint>

namespace ledgerfinch::decoding {
namespace {

/// The value of a JSON number written with a fraction or an exponent, told from its digits: a double would round it.
/// Absent when it isn't whole or doesn't fit.
std::optional<std::int64_t> exactInteger(std::string_view token) {
    const bool negative = token.starts_with('-');
    if (negative) token.remove_prefix(1);
    const std::size_t exponentAt = token.find_first_of("eE");
    const std::string_view mantissa = token.substr(0, exponentAt);
    const std::size_t point = mantissa.find('.');
    std::string digits(mantissa.substr(0, point));
    std::int64_t scale = 0; // the number is the digits with so many zeros behind them
    if (point != std::string_view::npos) {
        const std::string_view fraction = mantissa.substr(point + 1);
        digits += fraction;
        scale -= static_cast<std::int64_t>(fraction.size());
    }
    const std::size_t first = digits.find_first_not_of('0');
    if (first == std::string::npos) return 0;
    const std::size_t end = digits.find_last_not_of('0') + 1;
    scale += static_cast<std::int64_t>(digits.size() - end);
    digits = digits.substr(first, end - first);

    if (exponentAt != std::string_view::npos) {
        std::string_view written = token.substr(exponentAt + 1);
        if (written.starts_with('+')) written.remove_prefix(1);
        std::int32_t exponent = 0;
        if (std::from_chars(written.data(), written.data() + written.size(), exponent).ec != std::errc{})
            return std::nullopt;
        scale += exponent;
    }
    constexpr std::int64_t kMostDigits = 19;
    if (scale < 0 || scale > kMostDigits || digits.size() > kMostDigits) return std::nullopt;
    digits.append(static_cast<std::size_t>(scale), '0');
    if (negative) digits.insert(digits.begin(), '-');
    std::int64_t number = 0;
    if (std::from_chars(digits.data(), digits.data() + digits.size(), number).ec != std::errc{}) return std::nullopt;
    return number;
}

} // namespace

bool readIntegralNumber(Cursor& cursor, Value& value, std::int64_t& out) {
    // 1.0 and 1e3 are integers too.
    const std::string_view token = withoutTrailingSpace(value.raw_json_token());
    if (isJsonNumber(token)) {
        if (const auto number = exactInteger(token)) {
            out = *number;
            return true;
        }
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
    return cursor.fail("Invalid date: ", text);
}

} // namespace ledgerfinch::decoding
