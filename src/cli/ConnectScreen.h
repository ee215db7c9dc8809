// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/ExitCodes.h"
#include "cli/LoginInput.h"
#include "connection/screens/ConnectForm.h"

#include <functional>
#include <string_view>

namespace ledgerfinch::cli {

/// Puts the input into a login screen's fields, and the headers that are kept for the server unless others were given.
void fillIn(ConnectForm& form, const LoginInput& input, const UserDefaults& defaults);

/// Starts the form's work and waits for its end. False when a signal ended it. Main thread.
bool runForm(ConnectForm& form, const std::function<void()>& start);

/// What an error text of the login screens means for a script.
ExitCode exitCodeOfConnecting(std::string_view error);

} // namespace ledgerfinch::cli
