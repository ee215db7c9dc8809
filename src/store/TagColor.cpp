// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/TagColor.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace ledgerfinch {
namespace {

bool isAlphanumeric(char character) {
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'z') ||
           (character >= 'A' && character <= 'Z');
}

} // namespace

TagColor TagColor::parse(std::string_view text) {
    std::string digits;
    for (const char character : text) {
        if (!isAlphanumeric(character)) continue;
        digits += character;
        if (digits.size() > 8) return {};
    }
    std::uint32_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
    const auto byte = [number](unsigned shift) {
        return static_cast<std::uint8_t>(number >> shift & 0xFF);
    };
    const auto nibble = [number](unsigned shift) {
        return static_cast<std::uint8_t>((number >> shift & 0xF) * 17);
    };
    switch (digits.size()) {
    case 3:
        return {nibble(8), nibble(4), nibble(0)};
    case 6:
    case 8:
        return {byte(16), byte(8), byte(0)};
    default:
        return {};
    }
}

std::string TagColor::text() const {
    std::array<char, 8> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "#%02X%02X%02X", red, green, blue);
    return buffer.data();
}

std::string textColorOn(const std::optional<std::string>& color) {
    const auto parsed = TagColor::parse(color.value_or("000000"));
    const auto luminance =
        static_cast<float>((299.0 * parsed.red + 587.0 * parsed.green + 114.0 * parsed.blue) / 255.0 / 1000.0);
    return luminance > 0.5F ? "000000" : "FFFFFF";
}

} // namespace ledgerfinch
