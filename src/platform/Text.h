// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

namespace ledgerfinch::text {

/// Compares two versions the numeric way: runs of digits by their value, everything else by code unit ("1.14.5" above
/// "1.9.0").
std::strong_ordering compareNumeric(std::string_view first, std::string_view second);
/// As a person expects in the device's locale: numbers by value, without case (for the sort key
/// "localizedStandardCompare:").
int compareLocalizedStandard(std::string_view first, std::string_view second);
/// "1.5 MB", in the device's locale; "Zero KB" for 0.
std::string formatByteCount(std::int64_t bytes);
/// Valid UTF-8 with U+FFFD for every byte that doesn't belong.
std::string toValidUtf8(std::string_view bytes);
bool isValidUtf8(std::string_view bytes);
/// Percent-encodes everything but unreserved characters (RFC 3986 section 2.3).
std::string percentEncoded(std::string_view text);

} // namespace ledgerfinch::text
