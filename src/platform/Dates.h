// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// A moment in UTC, to the microsecond.
using Timestamp = std::chrono::sys_time<std::chrono::microseconds>;

/// A clock that tests set by hand.
class Clock {
public:
    virtual ~Clock() = default;
    [[nodiscard]] virtual Timestamp now() const;
};

/// Dates on the wire (ISO 8601, RFC 3339). All parsers are strict on the whole text and independent of the locale.
namespace dates {

/// "2024-03-01T12:30:00.123Z", "…+01:00", "…+00:53:28"; a fraction of one to nine digits is required. Absent when it
/// doesn't fit.
std::optional<Timestamp> parseFractional(std::string_view text);
/// The same without a fraction.
std::optional<Timestamp> parseWholeSecond(std::string_view text);
/// Fractional, then whole-second.
std::optional<Timestamp> parseDateTime(std::string_view text);
/// "2024-03-01": midnight in the device's time zone. A day that doesn't exist (2024-13-40) gives nothing.
std::optional<Timestamp> parseDateOnly(std::string_view text);

/// "2024-03-01T12:30:00Z".
std::string formatIso8601Utc(Timestamp time);
/// "2024-03-01" in the device's time zone.
std::string formatDateOnly(Timestamp time);
/// Numeric date without time in the device's locale ("01.03.2024", "3/1/2024"), four digits for the year.
std::string formatNumericDate(Timestamp time);
/// Seconds since 2001-01-01 00:00:00 UTC, the reference date of stored dates.
double secondsSinceReferenceDate(Timestamp time);
Timestamp fromSecondsSinceReferenceDate(double seconds);

} // namespace dates
} // namespace ledgerfinch
