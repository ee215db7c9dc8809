// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch::cli {

/// Asks on the controlling terminal, without echo. Signals that would end or stop the program meanwhile are handed on
/// only after the terminal is as it was. Absent without a terminal, at its end, or past 4096 bytes.
std::optional<std::string> readSecretFromTerminal(std::string_view prompt);

} // namespace ledgerfinch::cli
