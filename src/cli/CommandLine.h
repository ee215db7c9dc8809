// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/CompositionRoot.h"
#include "cli/Command.h"

#include <functional>
#include <span>
#include <string>

namespace ledgerfinch::cli {

/// One run of the program: finds the command among the words, checks them, executes it. Main thread, with a
/// QCoreApplication.
class CommandLine {
public:
    using MakeProgram = std::function<Result<std::unique_ptr<CompositionRoot>>(LaunchOptions)>;

    /// Tests hand in how the program's parts are made.
    explicit CommandLine(Console& console, MakeProgram makeProgram = CompositionRoot::build);
    ExitCode run(std::span<const std::string> words);

private:
    Console& m_console;
    MakeProgram m_makeProgram;
};

} // namespace ledgerfinch::cli
