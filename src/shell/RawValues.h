// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <concepts>
#include <optional>
#include <string_view>
#include <utility>

namespace ledgerfinch {

/// The texts under which an enumeration's cases are stored: specialised with
/// `static constexpr std::array<std::pair<Enumeration, std::string_view>, N> table`.
template <class Enumeration>
struct RawValues;

template <class T>
concept StoredByRawValue = requires {
    RawValues<T>::table;
};

template <StoredByRawValue Enumeration>
[[nodiscard]] constexpr std::string_view rawValue(Enumeration value) {
    for (const auto& [candidate, text] : RawValues<Enumeration>::table)
        if (candidate == value) return text;
    return {};
}

/// Absent for a text that names no case. Case matters.
template <StoredByRawValue Enumeration>
[[nodiscard]] constexpr std::optional<Enumeration> fromRawValue(std::string_view text) {
    for (const auto& [value, candidate] : RawValues<Enumeration>::table)
        if (candidate == text) return value;
    return std::nullopt;
}

} // namespace ledgerfinch
