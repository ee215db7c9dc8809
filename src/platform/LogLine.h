// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Logger.h"

#include <string>
#include <string_view>

namespace ledgerfinch {

/// "DEBUG", "INFO" or "ERROR".
std::string_view logLevelName(LogLevel level);
/// Line breaks, which a format string may hold, as "\n" and "\r" in letters.
std::string onOneLine(std::string_view message);

} // namespace ledgerfinch
