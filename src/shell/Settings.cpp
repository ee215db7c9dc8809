// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/Settings.h"

namespace ledgerfinch::settings {

std::string currentUserIdKey(std::string_view normalizedServer) {
    return std::string(normalizedServer) + "currentUserId";
}

std::optional<std::string> storedText(const UserDefaults& defaults, std::string_view name) {
    if (auto text = defaults.string(name)) return text;
    if (const auto number = defaults.integer(name)) return std::to_string(*number);
    if (const auto flag = defaults.boolean(name)) return *flag ? "true" : "false";
    return std::nullopt;
}

std::optional<bool> storedBoolean(const UserDefaults& defaults, std::string_view name) {
    if (const auto flag = defaults.boolean(name)) return flag;
    if (const auto number = defaults.integer(name); number == 0 || number == 1) return number == 1;
    const auto text = defaults.string(name);
    if (text == "YES" || text == "true") return true;
    if (text == "NO" || text == "false") return false;
    return std::nullopt;
}

} // namespace ledgerfinch::settings
