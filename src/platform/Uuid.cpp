// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Uuid.h"

#include "platform/Fatal.h"

#include <cerrno>
#include <cstddef>
#include <sys/random.h>

namespace ledgerfinch {

namespace {

bool isGroupEnd(std::size_t byteIndex) {
    return byteIndex == 3 || byteIndex == 5 || byteIndex == 7 || byteIndex == 9;
}

int hexValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

} // namespace

Uuid Uuid::random() {
    std::array<std::uint8_t, 16> bytes{};
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const auto count = ::getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (count > 0) {
            filled += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            fatal("The system's random generator doesn't answer.");
        }
    }
    // RFC 9562 section 5.4: version 4 in the high half of byte 6, the variant in the top bits of byte 8.
    bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
    return Uuid(bytes);
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    std::array<std::uint8_t, 16> bytes{};
    std::size_t position = 0;
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const int high = hexValue(text[position]);
        const int low = hexValue(text[position + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        bytes[index] = static_cast<std::uint8_t>(high * 16 + low);
        position += 2;
        if (isGroupEnd(index) && text[position++] != '-') return std::nullopt;
    }
    return Uuid(bytes);
}

std::string Uuid::text() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    result.reserve(36);
    for (std::size_t index = 0; index < m_bytes.size(); ++index) {
        result += digits[m_bytes[index] >> 4];
        result += digits[m_bytes[index] & 0x0F];
        if (isGroupEnd(index)) result += '-';
    }
    return result;
}

} // namespace ledgerfinch
