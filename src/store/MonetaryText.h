// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// The parts of an amount of money as servers write it: "EUR12.50".
struct MonetaryParts {
    std::string currency;        ///< everything before the first digit
    std::string amount;          ///< digits, and a fraction after one point
    std::optional<float> number; ///< absent when the amount is empty or too large
};

/// The first match of (\D*)(\d*\.?\d*).
MonetaryParts splitMonetary(std::string_view text);

} // namespace ledgerfinch
