// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/MonetaryText.h"

#include <algorithm>
#include <charconv>

namespace ledgerfinch {
namespace {

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

} // namespace

MonetaryParts splitMonetary(std::string_view text) {
    const auto digits = std::find_if(text.begin(), text.end(), isDigit);
    auto end = std::find_if_not(digits, text.end(), isDigit);
    if (digits != text.end() && end != text.end() && *end == '.') end = std::find_if_not(end + 1, text.end(), isDigit);

    MonetaryParts parts{std::string(text.begin(), digits), std::string(digits, end), std::nullopt};
    float number = 0;
    const char* last = parts.amount.data() + parts.amount.size();
    const auto [stop, failure] = std::from_chars(parts.amount.data(), last, number, std::chars_format::fixed);
    if (failure == std::errc() && stop == last) parts.number = number;
    return parts;
}

} // namespace ledgerfinch
