// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// A UUID (RFC 9562). A value.
class Uuid {
public:
    Uuid() = default;
    explicit Uuid(const std::array<std::uint8_t, 16>& bytes) : m_bytes(bytes) {}
    /// A random one, version 4, from the system's generator.
    static Uuid random();
    /// "8-4-4-4-12" hexadecimal digits in either case; anything else gives nothing.
    static std::optional<Uuid> parse(std::string_view text);

    /// Upper-case text, as it names folders.
    [[nodiscard]] std::string text() const;
    [[nodiscard]] const std::array<std::uint8_t, 16>& bytes() const { return m_bytes; }
    auto operator<=>(const Uuid&) const = default;

private:
    std::array<std::uint8_t, 16> m_bytes{};
};

} // namespace ledgerfinch
