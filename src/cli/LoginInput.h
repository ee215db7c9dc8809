// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Command.h"
#include "connection/CustomHeaders.h"

#include <optional>
#include <span>
#include <string>

namespace ledgerfinch::cli {

/// What the login screens ask for.
struct LoginInput {
    std::string connectionProtocol; ///< "https://" or "http://"
    std::string server;             ///< the rest of the address
    bool loginWithToken = false;
    std::string user;
    std::string password;
    std::string token;
    /// Absent: those that are kept for the server stay.
    std::optional<CustomHeaders> customHeaders;

    [[nodiscard]] std::string address() const { return connectionProtocol + server; }
};

/// The options of a login, in every command that has one.
std::span<const OptionDescription> loginOptions();

/// A sentence when a secret stands on the command line; it names no value.
std::string objectionToSecrets(std::span<const std::string> words);

/// Completes the input: asks on the terminal, reads standard input and the file of headers. Absent when that failed;
/// the reason was said, and `failure` is the exit code.
std::optional<LoginInput> readLoginInput(Console& console, const Arguments& arguments, const std::string& url,
                                         std::string_view command, ExitCode& failure);

/// "Name: value" lines; empty lines and those that begin with "#" are passed over. The error names the line, not its
/// content.
Result<CustomHeaders> parseHeaderLines(std::string_view text);

} // namespace ledgerfinch::cli
