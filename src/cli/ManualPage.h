// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace ledgerfinch::cli {

/// The manual page in roff (the man macros), made from the table of commands.
std::string manualPage();

} // namespace ledgerfinch::cli
