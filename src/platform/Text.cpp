// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Text.h"

#include <QCollator>
#include <QLocale>
#include <QString>

#include <algorithm>
#include <array>
#include <cmath>

namespace ledgerfinch::text {

namespace {

constexpr std::string_view kReplacement = "\uFFFD";

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Takes the run of digits at the front, without its leading zeros.
std::string_view takeNumber(std::string_view& text) {
    std::size_t length = 0;
    while (length < text.size() && isDigit(text[length]))
        ++length;
    auto number = text.substr(0, length);
    text.remove_prefix(length);
    while (!number.empty() && number.front() == '0')
        number.remove_prefix(1);
    return number;
}

/// Numbers of any length: the longer one is larger, equally long ones compare as texts.
std::strong_ordering compareNumbers(std::string_view first, std::string_view second) {
    if (first.size() != second.size()) return first.size() <=> second.size();
    return first.compare(second) <=> 0;
}

/// The length of the well-formed sequence at the front (Unicode 15, table 3-7), 0 when there is none.
std::size_t sequenceLength(std::string_view bytes) {
    const auto at = [bytes](std::size_t index) -> unsigned {
        return index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0U;
    };
    const auto isTail = [&at](std::size_t index) {
        return (at(index) & 0xC0U) == 0x80U;
    };
    const unsigned lead = at(0);
    if (lead < 0x80) return 1;
    if (lead < 0xC2 || lead > 0xF4) return 0;
    if (lead < 0xE0) return isTail(1) ? 2 : 0;
    if (lead < 0xF0) {
        const bool overlong = lead == 0xE0 && at(1) < 0xA0;
        const bool surrogate = lead == 0xED && at(1) > 0x9F;
        return isTail(1) && isTail(2) && !overlong && !surrogate ? 3 : 0;
    }
    const bool overlong = lead == 0xF0 && at(1) < 0x90;
    const bool tooLarge = lead == 0xF4 && at(1) > 0x8F;
    return isTail(1) && isTail(2) && isTail(3) && !overlong && !tooLarge ? 4 : 0;
}

/// How many bytes at the front are valid UTF-8.
std::size_t validPrefix(std::string_view bytes) {
    std::size_t position = 0;
    while (position < bytes.size()) {
        const auto length = sequenceLength(bytes.substr(position, 4));
        if (length == 0) break;
        position += length;
    }
    return position;
}

QCollator makeCollator() {
    // The C locale compares code points, which is not what a person expects.
    const QLocale locale;
    QCollator collator(locale.language() == QLocale::C ? QLocale(QLocale::English) : locale);
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

QString toQString(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

std::string decimal(double value, int digits) {
    QLocale locale;
    auto result = locale.toString(value, 'f', digits);
    if (digits > 0) {
        while (result.endsWith(locale.zeroDigit()))
            result.chop(1);
        if (result.endsWith(locale.decimalPoint())) result.chop(locale.decimalPoint().size());
    }
    return result.toStdString();
}

} // namespace

std::strong_ordering compareNumeric(std::string_view first, std::string_view second) {
    while (!first.empty() && !second.empty()) {
        if (isDigit(first.front()) && isDigit(second.front())) {
            const auto firstNumber = takeNumber(first);
            const auto order = compareNumbers(firstNumber, takeNumber(second));
            if (order != std::strong_ordering::equal) return order;
        } else {
            const auto order = static_cast<unsigned char>(first.front()) <=> static_cast<unsigned char>(second.front());
            if (order != std::strong_ordering::equal) return order;
            first.remove_prefix(1);
            second.remove_prefix(1);
        }
    }
    return first.size() <=> second.size();
}

int compareLocalizedStandard(std::string_view first, std::string_view second) {
    thread_local const QCollator collator = makeCollator();
    return collator.compare(toQString(first), toQString(second));
}

std::string formatByteCount(std::int64_t bytes) {
    if (bytes == 0) return "Zero KB";
    const double magnitude = std::abs(static_cast<double>(bytes));
    const std::string sign = bytes < 0 ? "-" : "";
    if (magnitude < 1000) return sign + decimal(magnitude, 0) + (magnitude == 1 ? " byte" : " bytes");

    struct Unit {
        const char* name;
        double size;
        int digits;
    };
    static constexpr std::array<Unit, 5> units{
        {{" KB", 1e3, 0}, {" MB", 1e6, 1}, {" GB", 1e9, 2}, {" TB", 1e12, 2}, {" PB", 1e15, 2}}};
    // The first unit in which the rounded number stays below a thousand.
    for (const auto& unit : units) {
        const double scale = std::pow(10.0, unit.digits);
        const double rounded = std::round(magnitude / unit.size * scale) / scale;
        if (rounded < 1000 || &unit == &units.back()) return sign + decimal(rounded, unit.digits) + unit.name;
    }
    return {};
}

bool isValidUtf8(std::string_view bytes) {
    return validPrefix(bytes) == bytes.size();
}

std::string toValidUtf8(std::string_view bytes) {
    std::string result;
    result.reserve(bytes.size());
    while (true) {
        const auto valid = validPrefix(bytes);
        result += bytes.substr(0, valid);
        if (valid == bytes.size()) return result;
        result += kReplacement;
        bytes.remove_prefix(valid + 1);
    }
}

std::string percentEncoded(std::string_view text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    static constexpr std::string_view unreserved = "-._~";
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        const bool letter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
        if (letter || isDigit(character) || unreserved.find(character) != std::string_view::npos) {
            result += character;
        } else {
            result += '%';
            result += digits[byte >> 4];
            result += digits[byte & 0x0F];
        }
    }
    return result;
}

} // namespace ledgerfinch::text
