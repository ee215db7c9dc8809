// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"
#include "platform/UserDefaults.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::settings {

enum class Kind { text, boolean, integer, choice };

/// What may be done with a setting from outside the program's own screens.
enum class Access {
    open,    ///< shown and set freely
    managed, ///< shown; changing it by hand would part it from the stores and files that belong to it
    secret,  ///< managed, and its value is never shown
};

/// One line of the catalogue.
struct Description {
    std::string_view name;
    Kind kind = Kind::text;
    std::string defaultText; ///< as setFromText() takes it; empty also for an absent text
    std::string_view meaning;
    Access access = Access::open;
    std::vector<std::string_view> choices; ///< of Kind::choice: the raw values
};

/// Every setting, each name once, ordered by subject.
[[nodiscard]] const std::vector<Description>& catalogue();
/// Null for a name that is no setting.
[[nodiscard]] const Description* find(std::string_view name);

/// The value as a person may see it, the default where nothing was stored. "<private>" for a secret that is set.
[[nodiscard]] std::string displayText(const UserDefaults& defaults, const Description& setting);

/// Checks and stores a typed text. Truth values take true and false, also yes/no, on/off, 1/0. The error is a sentence
/// for the person and never repeats a secret.
Result<void> setFromText(UserDefaults& defaults, std::string_view name, std::string_view text);

} // namespace ledgerfinch::settings
