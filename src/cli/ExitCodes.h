// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <array>
#include <string_view>

namespace ledgerfinch::cli {

/// What the program ends with. The numbers are an interface for scripts and never change their meaning; those from 64
/// on are those of sysexits.h.
enum class ExitCode : int {
    Ok = 0,
    Failed = 1,
    PartlyFailed = 2,
    Usage = 64,
    BadData = 65,
    NotFound = 66,
    Unreachable = 69,
    Internal = 70,
    CannotCreate = 73,
    Busy = 75,
    Refused = 77,
    Interrupted = 130
};

struct ExitCodeDescription {
    ExitCode code;
    std::string_view meaning;
};

/// The one table; the manual page prints it.
inline constexpr std::array<ExitCodeDescription, 12> kExitCodes{{
    {ExitCode::Ok, "All went well."},
    {ExitCode::Failed, "The operation failed; a sentence on standard error says why."},
    {ExitCode::PartlyFailed, "Some of it was done and kept, some of it failed. The next try makes up for it."},
    {ExitCode::Usage, "The command line wasn't understood."},
    {ExitCode::BadData, "What was given, or what the server answered, doesn't have the form that it should have: a web "
                        "page in place of data, "
                        "say, or an address from where the server sends requests on to another one."},
    {ExitCode::NotFound, "There is no such document, server, setting or file, here or where the server should be."},
    {ExitCode::Unreachable, "No server answered, or it said that it can't now (429, 500 and above)."},
    {ExitCode::Internal,
     "The local store or the settings can't be opened, or the program failed within. No file was changed."},
    {ExitCode::CannotCreate,
     "A file or folder can't be created or written, as on a full disk, or it exists already; or the output was lost."},
    {ExitCode::Busy, "Another process is at it. Try again later."},
    {ExitCode::Refused,
     "There is no login, or the server refused it or doesn't allow this, or the secret store that keeps the token is "
     "locked."},
    {ExitCode::Interrupted, "Ended by Ctrl-C or a signal. What was done is kept."},
}};

constexpr std::string_view meaningOf(ExitCode code) {
    for (const auto& entry : kExitCodes)
        if (entry.code == code) return entry.meaning;
    return {};
}

constexpr int toInt(ExitCode code) {
    return static_cast<int>(code);
}

} // namespace ledgerfinch::cli
