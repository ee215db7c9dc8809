// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Console.h"
#include "cli/ExitCodes.h"
#include "cli/LoginInput.h"
#include "connection/screens/ConnectForm.h"

#include <functional>

namespace ledgerfinch::cli {

/// Puts the input into a login screen's fields, and the headers that are kept for the server unless others were given.
void fillIn(ConnectForm& form, const LoginInput& input, const UserDefaults& defaults);

/// Starts the form's work and waits for its end. False when a signal ended it. Main thread.
bool runForm(ConnectForm& form, const std::function<void()>& start);

/// Says why the form's work came to nothing.
ExitCode complainOfConnecting(const Console& console, const Services& services, const ConnectForm& form,
                              const LoginInput& input);
/// Says what speaks against a login that came about all the same: a token that the server didn't confirm.
void tellDoubt(const Console& console, const ConnectForm& form, const LoginInput& input);
/// Says that a signal ended it.
ExitCode complainOfInterruption(const Console& console);

} // namespace ledgerfinch::cli
