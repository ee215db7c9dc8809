// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Escaping.h"

#include <charconv>

namespace ledgerfinch::escaping {

std::optional<std::uint8_t> hexByte(std::string_view digits) {
    std::uint8_t value = 0;
    const char* end = digits.data() + digits.size();
    const auto parsed = std::from_chars(digits.data(), end, value, 16);
    if (digits.size() != 2 || parsed.ec != std::errc() || parsed.ptr != end) return std::nullopt;
    return value;
}

std::string percentEncode(std::string_view text, std::string_view special) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    result.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x20 || byte == 0x7F || special.find(character) != std::string_view::npos) {
            result += '%';
            result += digits[byte >> 4];
            result += digits[byte & 0x0F];
        } else {
            result += character;
        }
    }
    return result;
}

std::optional<std::string> percentDecode(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        if (text.front() != '%') {
            result += text.front();
            text.remove_prefix(1);
            continue;
        }
        const auto byte = hexByte(text.substr(1, 2));
        if (!byte) return std::nullopt;
        result += static_cast<char>(*byte);
        text.remove_prefix(3);
    }
    return result;
}

} // namespace ledgerfinch::escaping
