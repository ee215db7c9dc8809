// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerTime.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace ledgerfinch::support {

namespace {

namespace chrono = std::chrono;

constexpr std::int64_t hour = 3600;
/// Until April 1893 the city kept its own mean time.
constexpr std::int64_t localMeanOffset = 53 * 60 + 28;

struct Civil {
    int year = 0;
    unsigned month = 0;
    unsigned day = 0;
    std::int64_t secondOfDay = 0;
};

std::int64_t floorDivide(std::int64_t value, std::int64_t divisor) {
    auto quotient = value / divisor;
    return value % divisor < 0 ? quotient - 1 : quotient;
}

std::int64_t daysFrom(int year, unsigned month, unsigned day) {
    return chrono::sys_days{chrono::year{year} / chrono::month{month} / chrono::day{day}}.time_since_epoch().count();
}

Civil civilFrom(std::int64_t seconds) {
    auto day = floorDivide(seconds, 24 * hour);
    chrono::year_month_day date{chrono::sys_days{chrono::days{day}}};
    return {int(date.year()), unsigned(date.month()), unsigned(date.day()), seconds - day * 24 * hour};
}

std::int64_t lastSunday(int year, unsigned month) {
    chrono::sys_days day{chrono::year{year} / chrono::month{month} / chrono::Sunday[chrono::last]};
    return day.time_since_epoch().count();
}

/// The seconds that local time is ahead of UTC at an instant of UTC.
std::int64_t offsetAt(std::int64_t utc) {
    if (utc < daysFrom(1893, 4, 1) * 24 * hour) return localMeanOffset;
    auto year = civilFrom(utc).year;
    if (year < 1981) return hour;
    auto start = lastSunday(year, 3) * 24 * hour + hour;
    auto end = lastSunday(year, year < 1996 ? 9 : 10) * 24 * hour + hour;
    return utc >= start && utc < end ? 2 * hour : hour;
}

std::int64_t utcOfLocal(std::int64_t local) {
    auto guess = local - offsetAt(local - hour);
    return local - offsetAt(guess);
}

std::string offsetText(std::int64_t offset) {
    char text[16];
    if (offset % 60 != 0) {
        std::snprintf(text, sizeof text, "+%02d:%02d:%02d", int(offset / hour), int(offset / 60 % 60),
                      int(offset % 60));
    } else {
        std::snprintf(text, sizeof text, "+%02d:%02d", int(offset / hour), int(offset / 60 % 60));
    }
    return text;
}

std::string plainText(std::int64_t seconds, std::int64_t fraction) {
    auto civil = civilFrom(seconds);
    char text[64];
    auto length =
        std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d", civil.year, civil.month, civil.day,
                      int(civil.secondOfDay / hour), int(civil.secondOfDay / 60 % 60), int(civil.secondOfDay % 60));
    if (fraction != 0) std::snprintf(text + length, sizeof text - std::size_t(length), ".%06d", int(fraction));
    return text;
}

/// Takes exactly `digits` digits from the front.
std::optional<int> takeNumber(std::string_view& text, std::size_t digits) {
    if (text.size() < digits) return std::nullopt;
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + digits, value);
    if (error != std::errc{} || end != text.data() + digits || text.front() == '-') return std::nullopt;
    text.remove_prefix(digits);
    return value;
}

bool takeChar(std::string_view& text, char wanted) {
    if (text.empty() || text.front() != wanted) return false;
    text.remove_prefix(1);
    return true;
}

std::optional<std::int64_t> takeDate(std::string_view& text) {
    auto year = takeNumber(text, 4);
    if (!year || !takeChar(text, '-')) return std::nullopt;
    auto month = takeNumber(text, 2);
    if (!month || !takeChar(text, '-')) return std::nullopt;
    auto day = takeNumber(text, 2);
    if (!day) return std::nullopt;
    chrono::year_month_day date{chrono::year{*year}, chrono::month{unsigned(*month)}, chrono::day{unsigned(*day)}};
    if (!date.ok() || *year < 1) return std::nullopt;
    return chrono::sys_days{date}.time_since_epoch().count();
}

std::optional<std::int64_t> takeFraction(std::string_view& text) {
    std::int64_t fraction = 0;
    std::size_t digits = 0;
    while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
        if (digits < 6) fraction = fraction * 10 + (text.front() - '0');
        ++digits;
        text.remove_prefix(1);
    }
    if (digits == 0) return std::nullopt;
    for (; digits < 6; ++digits)
        fraction *= 10;
    return fraction;
}

constexpr std::array<const char*, 7> weekdays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

} // namespace

Micros clockNow() {
    return chrono::duration_cast<chrono::microseconds>(chrono::system_clock::now().time_since_epoch()).count();
}

std::string localTimeText(Micros time) {
    auto seconds = floorDivide(time, second);
    auto offset = offsetAt(seconds);
    return plainText(seconds + offset, time - seconds * second) + offsetText(offset);
}

std::string utcTimeText(Micros time) {
    auto seconds = floorDivide(time, second);
    return plainText(seconds, time - seconds * second) + "Z";
}

std::string localDateText(Micros time) {
    auto seconds = floorDivide(time, second);
    return plainText(seconds + offsetAt(seconds), 0).substr(0, 10);
}

std::string localMidnightText(std::string_view date) {
    auto rest = date;
    auto days = takeDate(rest);
    if (!days) return std::string(date);
    auto local = *days * 24 * hour;
    return plainText(local, 0) + offsetText(offsetAt(utcOfLocal(local)));
}

std::string httpDateText(Micros time) {
    auto seconds = floorDivide(time, second);
    auto civil = civilFrom(seconds);
    auto weekday = std::size_t((floorDivide(seconds, 24 * hour) % 7 + 11) % 7);
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02u %s %04d %02d:%02d:%02d GMT", weekdays[weekday], civil.day,
                  months[civil.month - 1], civil.year, int(civil.secondOfDay / hour), int(civil.secondOfDay / 60 % 60),
                  int(civil.secondOfDay % 60));
    return text;
}

std::optional<Micros> parseHttpDate(std::string_view text) {
    char month[4] = {};
    int day = 0, year = 0, hours = 0, minutes = 0, seconds = 0;
    if (std::sscanf(std::string(text).c_str(), "%*3s, %d %3s %d %d:%d:%d GMT", &day, month, &year, &hours, &minutes,
                    &seconds) != 6)
        return std::nullopt;
    for (unsigned index = 0; index < months.size(); ++index) {
        if (std::string_view(months[index]) != month) continue;
        return (daysFrom(year, index + 1, unsigned(day)) * 24 * hour + hours * hour + minutes * 60 + seconds) * second;
    }
    return std::nullopt;
}

bool isDate(std::string_view text) {
    auto days = takeDate(text);
    return days && text.empty();
}

std::optional<Micros> parseTime(std::string_view text) {
    auto days = takeDate(text);
    if (!days) return std::nullopt;
    auto local = *days * 24 * hour;
    if (text.empty()) return utcOfLocal(local) * second;
    if (!takeChar(text, 'T') && !takeChar(text, ' ')) return std::nullopt;
    auto hours = takeNumber(text, 2);
    if (!hours || *hours > 23 || !takeChar(text, ':')) return std::nullopt;
    auto minutes = takeNumber(text, 2);
    if (!minutes || *minutes > 59) return std::nullopt;
    local += *hours * hour + *minutes * 60;
    std::int64_t fraction = 0;
    if (takeChar(text, ':')) {
        auto seconds = takeNumber(text, 2);
        if (!seconds || *seconds > 59) return std::nullopt;
        local += *seconds;
        if (takeChar(text, '.')) {
            auto part = takeFraction(text);
            if (!part) return std::nullopt;
            fraction = *part;
        }
    }
    if (text.empty()) return utcOfLocal(local) * second + fraction;
    if (text == "Z" || text == "z") return local * second + fraction;
    auto negative = text.front() == '-';
    if (!takeChar(text, '+') && !takeChar(text, '-')) return std::nullopt;
    auto zoneHours = takeNumber(text, 2);
    if (!zoneHours) return std::nullopt;
    takeChar(text, ':');
    auto zoneMinutes = text.empty() ? std::optional<int>(0) : takeNumber(text, 2);
    if (!zoneMinutes) return std::nullopt;
    std::int64_t zoneSeconds = 0;
    if (takeChar(text, ':')) {
        auto part = takeNumber(text, 2);
        if (!part) return std::nullopt;
        zoneSeconds = *part;
    }
    if (!text.empty()) return std::nullopt;
    auto offset = *zoneHours * hour + *zoneMinutes * 60 + zoneSeconds;
    return (local - (negative ? -offset : offset)) * second + fraction;
}

} // namespace ledgerfinch::support
