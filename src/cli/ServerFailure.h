// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Console.h"
#include "cli/ExitCodes.h"
#include "connection/ApiError.h"
#include "platform/Services.h"

#include <string>
#include <string_view>

/// What went wrong between this machine and a server, for a person and for a script.
namespace ledgerfinch::cli {

/// Host and, where it isn't the usual one, port of a server's address, for a sentence: "papers.example.org:8443".
std::string hostText(std::string_view address);

/// What the status of an operation means for a script.
ExitCode exitCodeOfStatus(int status);

/// One line with the server's host and why an operation failed. Of a status of no answer `reason` is what the transport
/// said; the way out is added.
std::string failureText(std::string_view address, int status, std::string_view reason);

/// Says why a login, a logout or the removal of a server did not come about.
ExitCode complainOf(const Console& console, const Services& services, std::string_view address,
                    const ApiError& failure);

} // namespace ledgerfinch::cli
