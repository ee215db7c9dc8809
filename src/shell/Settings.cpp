// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/Settings.h"

namespace ledgerfinch::settings {

std::string currentUserIdKey(std::string_view normalizedServer) {
    return std::string(normalizedServer) + "currentUserId";
}

} // namespace ledgerfinch::settings
