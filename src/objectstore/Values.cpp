// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/Values.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace ledgerfinch::values {
namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

std::strong_ordering compareBytes(std::string_view first, std::string_view second) {
    // char_traits<char> compares as unsigned bytes, as SQLite does.
    const int order = first.compare(second);
    return order < 0   ? std::strong_ordering::less
           : order > 0 ? std::strong_ordering::greater
                       : std::strong_ordering::equal;
}

/// Exact, also where a double can't hold the integer.
std::strong_ordering compareIntegerWithReal(std::int64_t integer, double real) {
    if (real >= kTwoTo63) return std::strong_ordering::less;
    if (real < -kTwoTo63) return std::strong_ordering::greater;
    const auto whole = static_cast<std::int64_t>(real);
    if (integer != whole) return integer <=> whole;
    const double fraction = real - static_cast<double>(whole);
    return fraction > 0   ? std::strong_ordering::less
           : fraction < 0 ? std::strong_ordering::greater
                          : std::strong_ordering::equal;
}

std::optional<std::int64_t> asInteger(const Value& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
    if (const auto* truth = std::get_if<bool>(&value)) return *truth ? 1 : 0;
    return std::nullopt;
}

std::string textOf(const Value& number) {
    std::array<char, 32> buffer{};
    std::to_chars_result end{};
    if (const auto integer = asInteger(number))
        end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), *integer);
    else
        end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), std::get<double>(number));
    return {buffer.data(), end.ptr};
}

std::optional<Value> coercedToDate(const Value& value) {
    if (std::holds_alternative<Timestamp>(value)) return value;
    if (const auto* text = std::get_if<std::string>(&value)) {
        if (auto time = dates::parseDateTime(*text)) return *time;
        if (auto day = dates::parseDateOnly(*text)) return *day;
        return std::nullopt;
    }
    // A bare number counts seconds since the reference date; outside of what a moment can hold it matches nothing.
    const auto integer = asInteger(value);
    const auto* real = std::get_if<double>(&value);
    if (!integer && !real) return std::nullopt;
    const double seconds = integer ? static_cast<double>(*integer) : *real;
    if (!(std::abs(seconds) < 1e11)) return std::nullopt;
    return dates::fromSecondsSinceReferenceDate(seconds);
}

} // namespace

const Value& initial(AttributeType type) {
    static const Value kZero = std::int64_t{0};
    static const Value kFalse = false;
    static const Value kAbsent;
    switch (type) {
    case AttributeType::Int64:
        return kZero;
    case AttributeType::Boolean:
        return kFalse;
    default:
        return kAbsent;
    }
}

std::optional<Value> fitted(Value value, AttributeType type) {
    if (isAbsent(value)) return initial(type);
    bool fits = false;
    switch (type) {
    case AttributeType::Int64:
        fits = std::holds_alternative<std::int64_t>(value);
        break;
    case AttributeType::Boolean:
        fits = std::holds_alternative<bool>(value);
        break;
    case AttributeType::String:
        fits = std::holds_alternative<std::string>(value);
        break;
    case AttributeType::Date:
        fits = std::holds_alternative<Timestamp>(value);
        break;
    case AttributeType::Binary:
        fits = std::holds_alternative<Blob>(value);
        break;
    case AttributeType::Uuid:
        fits = std::holds_alternative<Uuid>(value);
        break;
    }
    if (!fits) return std::nullopt;
    return value;
}

void bind(sqlite::Statement& statement, int position, const Value& value) {
    switch (value.index()) {
    case 0:
        statement.bindNull(position);
        break;
    case 1:
        statement.bind(position, std::get<std::int64_t>(value));
        break;
    case 2:
        statement.bind(position, std::int64_t{std::get<bool>(value) ? 1 : 0});
        break;
    case 3:
        statement.bind(position, std::get<double>(value));
        break;
    case 4:
        statement.bindText(position, std::get<std::string>(value));
        break;
    case 5: {
        const std::string& bytes = std::get<Blob>(value).bytes;
        statement.bindBlob(position, bytes.data(), bytes.size());
        break;
    }
    case 6:
        statement.bind(position, static_cast<std::int64_t>(std::get<Timestamp>(value).time_since_epoch().count()));
        break;
    case 7: {
        const auto& bytes = std::get<Uuid>(value).bytes();
        statement.bindBlob(position, bytes.data(), bytes.size());
        break;
    }
    default:
        statement.bindNull(position);
    }
}

Value read(const sqlite::Statement& statement, int column, AttributeType type) {
    if (statement.isNull(column)) return initial(type);
    switch (type) {
    case AttributeType::Int64:
        return statement.integer(column);
    case AttributeType::Boolean:
        return statement.integer(column) != 0;
    case AttributeType::String:
        return std::string(statement.text(column));
    case AttributeType::Date:
        return Timestamp(std::chrono::microseconds(statement.integer(column)));
    case AttributeType::Binary:
        return Blob{std::string(statement.blob(column))};
    case AttributeType::Uuid: {
        const std::string_view bytes = statement.blob(column);
        std::array<std::uint8_t, 16> array{};
        if (bytes.size() != array.size()) return {};
        std::memcpy(array.data(), bytes.data(), array.size());
        return Uuid(array);
    }
    }
    return {};
}

std::optional<std::strong_ordering> compare(const Value& first, const Value& second) {
    const auto left = asInteger(first);
    const auto right = asInteger(second);
    if (left && right) return *left <=> *right;
    const auto* leftReal = std::get_if<double>(&first);
    const auto* rightReal = std::get_if<double>(&second);
    if (left && rightReal) return compareIntegerWithReal(*left, *rightReal);
    if (leftReal && right) return 0 <=> compareIntegerWithReal(*right, *leftReal);
    if (first.index() != second.index()) return std::nullopt;
    if (leftReal) {
        if (*leftReal == *rightReal) return std::strong_ordering::equal;
        return *leftReal < *rightReal ? std::strong_ordering::less : std::strong_ordering::greater;
    }
    if (const auto* text = std::get_if<std::string>(&first)) return compareBytes(*text, std::get<std::string>(second));
    if (const auto* blob = std::get_if<Blob>(&first)) return compareBytes(blob->bytes, std::get<Blob>(second).bytes);
    if (const auto* time = std::get_if<Timestamp>(&first))
        return time->time_since_epoch().count() <=> std::get<Timestamp>(second).time_since_epoch().count();
    if (const auto* uuid = std::get_if<Uuid>(&first)) return *uuid <=> std::get<Uuid>(second);
    return std::nullopt;
}

std::optional<Value> numberFrom(std::string_view text) {
    if (text.empty()) return std::int64_t{0};
    std::string_view digits = text;
    if (digits.front() == '+') digits.remove_prefix(1);
    if (digits.empty() || (digits.front() == '-' && digits.size() != text.size())) return std::nullopt;
    const char* end = digits.data() + digits.size();
    std::int64_t integer = 0;
    if (const auto parsed = std::from_chars(digits.data(), end, integer); parsed.ec == std::errc() && parsed.ptr == end)
        return integer;
    double real = 0;
    const auto parsed = std::from_chars(digits.data(), end, real);
    if (parsed.ec != std::errc() || parsed.ptr != end || !std::isfinite(real)) return std::nullopt;
    return real;
}

std::optional<Value> coerced(const Value& value, AttributeType type) {
    if (isAbsent(value)) return std::nullopt;
    if (const auto* real = std::get_if<double>(&value); real && !std::isfinite(*real)) return std::nullopt;
    const auto* text = std::get_if<std::string>(&value);
    const bool isNumber = std::holds_alternative<std::int64_t>(value) || std::holds_alternative<bool>(value) ||
                          std::holds_alternative<double>(value);
    switch (type) {
    case AttributeType::Int64:
    case AttributeType::Boolean:
        if (text) return numberFrom(*text);
        if (isNumber) return value;
        return std::nullopt;
    case AttributeType::String:
        if (isNumber) return textOf(value);
        if (text) return value;
        return std::nullopt;
    case AttributeType::Date:
        return coercedToDate(value);
    case AttributeType::Uuid:
        if (text) {
            if (const auto uuid = Uuid::parse(*text)) return *uuid;
            return std::nullopt;
        }
        if (std::holds_alternative<Uuid>(value)) return value;
        return std::nullopt;
    case AttributeType::Binary:
        if (text) return Blob{*text};
        if (std::holds_alternative<Blob>(value)) return value;
        return std::nullopt;
    }
    return std::nullopt;
}

} // namespace ledgerfinch::values
