// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// A colour of a tag, eight bits a component.
struct TagColor {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;

    /// Three, six or eight (alpha first) hexadecimal digits, whatever stands between them; anything else is black.
    static TagColor parse(std::string_view text);
    /// "#725BFF".
    [[nodiscard]] std::string text() const;
};

/// Black ("000000") on light colours, white ("FFFFFF") on dark ones. An absent colour is black.
std::string textColorOn(const std::optional<std::string>& color);

} // namespace ledgerfinch
