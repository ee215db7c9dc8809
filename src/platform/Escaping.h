// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch::escaping {

/// The value of two hexadecimal digits.
std::optional<std::uint8_t> hexByte(std::string_view digits);
/// Encodes control characters and those of `special`; everything else stays readable.
std::string percentEncode(std::string_view text, std::string_view special);
/// Nothing when a percent sign isn't followed by two hexadecimal digits.
std::optional<std::string> percentDecode(std::string_view text);

} // namespace ledgerfinch::escaping
