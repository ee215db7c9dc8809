// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Dates.h"

#include <QDate>
#include <QLocale>
#include <QRegularExpression>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace ledgerfinch {

Timestamp Clock::now() const {
    return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

namespace dates {

namespace {

using std::chrono::microseconds;
using std::chrono::seconds;

constexpr std::chrono::sys_days kReferenceDate = std::chrono::year(2001) / std::chrono::month(1) / std::chrono::day(1);

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// Reads a text from the front. After a step that doesn't fit, `failed` stays true.
struct Reader {
    std::string_view rest;
    bool failed = false;

    [[nodiscard]] char peek() const { return rest.empty() ? '\0' : rest.front(); }

    bool take(char character) {
        if (peek() != character || rest.empty()) return false;
        rest.remove_prefix(1);
        return true;
    }

    void expect(char character) {
        if (!take(character)) failed = true;
    }

    /// Exactly this many digits.
    int number(std::size_t digits, int low, int high) {
        int value = 0;
        for (std::size_t index = 0; index < digits; ++index) {
            if (!isDigit(peek())) {
                failed = true;
                return low;
            }
            value = value * 10 + (peek() - '0');
            rest.remove_prefix(1);
        }
        if (value < low || value > high) failed = true;
        return value;
    }
};

std::optional<std::chrono::year_month_day> readDate(Reader& reader) {
    const int year = reader.number(4, 1, 9999);
    reader.expect('-');
    const int month = reader.number(2, 1, 12);
    reader.expect('-');
    const int day = reader.number(2, 1, 31);
    const auto date = std::chrono::year(year) / std::chrono::month(static_cast<unsigned>(month)) /
                      std::chrono::day(static_cast<unsigned>(day));
    if (reader.failed || !date.ok()) return std::nullopt;
    return date;
}

microseconds readTime(Reader& reader) {
    const int hour = reader.number(2, 0, 23);
    reader.expect(':');
    const int minute = reader.number(2, 0, 59);
    reader.expect(':');
    const int second = reader.number(2, 0, 59);
    return std::chrono::hours(hour) + std::chrono::minutes(minute) + seconds(second);
}

/// One to nine digits after the point; what is finer than a microsecond is cut off.
microseconds readFraction(Reader& reader) {
    reader.expect('.');
    std::int64_t nanoseconds = 0;
    int digits = 0;
    for (; digits < 9 && isDigit(reader.peek()); ++digits)
        nanoseconds = nanoseconds * 10 + reader.number(1, 0, 9);
    if (digits == 0) reader.failed = true;
    for (int missing = digits; missing < 9; ++missing)
        nanoseconds *= 10;
    return microseconds(nanoseconds / 1000);
}

/// "Z", "+hh:mm", "+hhmm" or "+hh:mm:ss" (zones of old dates have seconds).
seconds readZone(Reader& reader) {
    if (reader.take('Z')) return seconds(0);
    const bool negative = reader.peek() == '-';
    if (!negative && reader.peek() != '+') {
        reader.failed = true;
        return seconds(0);
    }
    reader.rest.remove_prefix(1);
    const int hour = reader.number(2, 0, 23);
    const bool colons = reader.take(':');
    const int minute = reader.number(2, 0, 59);
    const int second = colons && reader.take(':') ? reader.number(2, 0, 59) : 0;
    const seconds offset = std::chrono::hours(hour) + std::chrono::minutes(minute) + seconds(second);
    return negative ? -offset : offset;
}

std::optional<Timestamp> parse(std::string_view text, bool withFraction) {
    Reader reader{text};
    const auto date = readDate(reader);
    if (!date) return std::nullopt;
    reader.expect('T');
    const auto time = readTime(reader);
    const auto fraction = withFraction ? readFraction(reader) : microseconds(0);
    const auto offset = readZone(reader);
    if (reader.failed || !reader.rest.empty()) return std::nullopt;
    return Timestamp(std::chrono::sys_days(*date)) + time + fraction - offset;
}

std::tm localTime(std::time_t time) {
    ::tzset();
    std::tm result{};
    ::localtime_r(&time, &result);
    return result;
}

std::tm localTime(Timestamp time) {
    return localTime(std::chrono::floor<seconds>(time).time_since_epoch().count());
}

/// The first moment of a local day. Not every day begins at midnight: clocks can be put forward then, and a zone that
/// crosses the date line leaves out a whole day; then it is the first moment after it.
std::time_t startOfLocalDay(std::chrono::year_month_day date) {
    const int year = static_cast<int>(date.year());
    const int month = static_cast<int>(static_cast<unsigned>(date.month()));
    const int day = static_cast<int>(static_cast<unsigned>(date.day()));

    std::optional<std::time_t> earliest;
    for (const int daylightSaving : {-1, 0, 1}) {
        std::tm fields{};
        fields.tm_year = year - 1900;
        fields.tm_mon = month - 1;
        fields.tm_mday = day;
        fields.tm_isdst = daylightSaving;
        fields.tm_wday = -1; // set when it succeeds; the result -1 is also a moment
        const std::time_t time = std::mktime(&fields);
        if (fields.tm_wday < 0) continue;
        const bool isMidnight = fields.tm_year == year - 1900 && fields.tm_mon == month - 1 && fields.tm_mday == day &&
                                fields.tm_hour == 0 && fields.tm_min == 0 && fields.tm_sec == 0;
        if (isMidnight && (!earliest || time < *earliest)) earliest = time;
    }
    if (earliest) return *earliest;

    const auto reached = [&](std::time_t time) {
        const auto fields = localTime(time);
        return std::array{fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday} >= std::array{year, month, day};
    };
    constexpr std::time_t kFurthest = 50 * 3600;
    const std::time_t utcMidnight = seconds(std::chrono::sys_days(date).time_since_epoch()).count();
    std::time_t before = utcMidnight - kFurthest;
    std::time_t after = utcMidnight + kFurthest;
    while (after - before > 1) {
        const std::time_t middle = before + (after - before) / 2;
        (reached(middle) ? after : before) = middle;
    }
    return after;
}

/// The short date format with all four digits of the year and digits for the month.
QString numericFormat(const QLocale& locale) {
    static const QRegularExpression shortYear(QStringLiteral("(?<!y)yy(?!y)"));
    static const QRegularExpression monthName(QStringLiteral("M{3,}"));
    auto format = locale.dateFormat(QLocale::ShortFormat);
    format.replace(shortYear, QStringLiteral("yyyy"));
    format.replace(monthName, QStringLiteral("MM"));
    return format;
}

} // namespace

std::optional<Timestamp> parseFractional(std::string_view text) {
    return parse(text, true);
}

std::optional<Timestamp> parseWholeSecond(std::string_view text) {
    return parse(text, false);
}

std::optional<Timestamp> parseDateTime(std::string_view text) {
    if (const auto time = parseFractional(text)) return time;
    return parseWholeSecond(text);
}

std::optional<Timestamp> parseDateOnly(std::string_view text) {
    Reader reader{text};
    const auto date = readDate(reader);
    if (!date || !reader.rest.empty()) return std::nullopt;
    return Timestamp(seconds(startOfLocalDay(*date)));
}

std::string formatIso8601Utc(Timestamp time) {
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date(day);
    const std::chrono::hh_mm_ss clock(std::chrono::floor<seconds>(time - day));
    std::array<char, 64> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return buffer.data();
}

std::string formatDateOnly(Timestamp time) {
    const auto fields = localTime(time);
    std::array<char, 48> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%04d-%02d-%02d", fields.tm_year + 1900, fields.tm_mon + 1,
                  fields.tm_mday);
    return buffer.data();
}

std::string formatNumericDate(Timestamp time) {
    const auto fields = localTime(time);
    const QDate date(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday);
    QLocale locale;
    // The C locale has no numeric date.
    if (locale.language() == QLocale::C) locale = QLocale(QLocale::English, QLocale::UnitedStates);
    return locale.toString(date, numericFormat(locale)).toStdString();
}

double secondsSinceReferenceDate(Timestamp time) {
    return std::chrono::duration<double>(time - kReferenceDate).count();
}

Timestamp fromSecondsSinceReferenceDate(double value) {
    // A stored number can be anything; ten thousand years either way keep the arithmetic defined.
    constexpr double kLimit = 10'000.0 * 366 * 86'400;
    if (!(value > -kLimit)) value = std::isnan(value) ? 0 : -kLimit;
    if (value > kLimit) value = kLimit;
    return Timestamp(kReferenceDate) + microseconds(std::llround(value * 1e6));
}

} // namespace dates
} // namespace ledgerfinch
