// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Arguments.h"
#include "cli/Console.h"
#include "cli/ExitCodes.h"

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {
class CompositionRoot;
}

namespace ledgerfinch::cli {

/// What a command works with. The program's parts are built at the first call of `program()`; a command that doesn't
/// call it (help) needs no folder.
class CommandContext {
public:
    virtual ~CommandContext() = default;
    virtual Console& console() = 0;
    /// Null when the parts can't be built, as when a folder can't be written to; the reason was written already and the
    /// exit code is `failure()`.
    virtual CompositionRoot* program() = 0;
    /// The same for what writes nothing: folders that can only be read will do.
    virtual CompositionRoot* programToRead() = 0;
    [[nodiscard]] virtual ExitCode failure() const = 0;
};

/// One command: its description as data, and what it does. Stateless; main thread.
class Command {
public:
    virtual ~Command() = default;
    [[nodiscard]] virtual std::string_view name() const = 0;
    /// One line for the list of commands.
    [[nodiscard]] virtual std::string_view summary() const = 0;
    /// Paragraphs for the help and the manual page, separated by empty lines.
    [[nodiscard]] virtual std::string_view description() const = 0;
    [[nodiscard]] virtual std::span<const PositionalDescription> positionals() const { return {}; }
    [[nodiscard]] virtual std::span<const OptionDescription> options() const { return {}; }
    /// What it may end with, ascending.
    [[nodiscard]] virtual std::span<const ExitCode> exitCodes() const = 0;
    /// A sentence when these words must be refused before they are looked at closer; for secrets in the wrong place.
    [[nodiscard]] virtual std::string objection(std::span<const std::string> words) const;
    virtual ExitCode execute(CommandContext& context, const Arguments& arguments) const = 0;
};

/// A usage error: the sentence, where to look, and the exit code.
ExitCode complainOfUsage(const Console& console, std::string_view sentence, std::string_view command = {});

/// The first option given that `allowed` and those of every command don't hold, as a sentence: of commands whose
/// actions take options of their own. Absent when there is none.
std::optional<std::string> optionOutOfPlace(const Arguments& arguments, std::span<const OptionDescription> known,
                                            std::span<const std::string_view> allowed, std::string_view action);

/// Every command, in the order of the help.
const std::vector<std::unique_ptr<Command>>& allCommands();
const Command* findCommand(std::string_view name);
/// Options that every command takes.
std::span<const OptionDescription> globalOptions();
/// "ledgerfinch-cli list [OPTION]..."
std::string usageLine(const Command& command);
std::string helpText();
std::string helpText(const Command& command);

} // namespace ledgerfinch::cli
