// SPDX-License-Identifier: GPL-3.0-or-later
// Times as a server set to Europe/Berlin writes and reads them, whatever the zone of this machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch::support {

/// Microseconds since 1970 in UTC.
using Micros = std::int64_t;

inline constexpr Micros second = 1'000'000;

/// The machine's clock.
Micros clockNow();

/// "2024-03-01T12:30:00.000123+01:00"; the fraction is left out when it is zero, as Python's isoformat does.
std::string localTimeText(Micros time);

/// "2024-03-01T12:30:00.000123Z".
std::string utcTimeText(Micros time);

/// The local calendar day, "2024-03-01".
std::string localDateText(Micros time);

/// "2024-03-01T00:00:00+01:00" for "2024-03-01"; offsets before 1893 carry seconds.
std::string localMidnightText(std::string_view date);

/// "Fri, 01 Mar 2024 11:30:00 GMT".
std::string httpDateText(Micros time);

/// Reads an HTTP date of the form above.
std::optional<Micros> parseHttpDate(std::string_view text);

/// True for an existing calendar day in the form YYYY-MM-DD.
bool isDate(std::string_view text);

/// Reads "YYYY-MM-DD" (local midnight) or "YYYY-MM-DDThh:mm[:ss[.f]][Z|+hh:mm]" (local without a zone).
std::optional<Micros> parseTime(std::string_view text);

} // namespace ledgerfinch::support
