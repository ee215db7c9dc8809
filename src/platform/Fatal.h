// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>

namespace ledgerfinch {

/// Ends the program: the text goes to stderr, then exit status 70 (EX_SOFTWARE), without running destructors.
[[noreturn]] void fatal(const std::string& message);

/// Is called first by fatal(), on its thread: to log the text, or, in tests, to throw. When it returns, the program
/// ends all the same. An empty function takes the handler away.
void setFatalHandler(std::function<void(const std::string&)> handler);

} // namespace ledgerfinch
