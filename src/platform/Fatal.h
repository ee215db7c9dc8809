// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>

namespace ledgerfinch {

/// What the program ends with: "internal software error" of sysexits.h, and the one for files that can't be written.
enum class FatalStatus { Software = 70, CannotCreate = 73 };

/// Ends the program: the text goes to stderr, then the exit status, without running destructors.
[[noreturn]] void fatal(const std::string& message, FatalStatus status = FatalStatus::Software);

/// Is called first by fatal(), on its thread: to log the text, or, in tests, to throw. When it returns, the program
/// ends all the same. An empty function takes the handler away.
void setFatalHandler(std::function<void(const std::string&)> handler);

} // namespace ledgerfinch
