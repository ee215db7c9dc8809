// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/DisplayText.h"
#include "cli/ManualPage.h"
#include "cli/commands/Commands.h"

#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

constexpr std::array<PositionalDescription, 1> kPositionals{
    {{"COMMAND", "The command that is asked about.", PositionalDescription::Occurs::Optional}}};
constexpr std::array<OptionDescription, 1> kOptions{{
    {"man", "", "Write the manual page in roff."},
}};

constexpr std::array<ExitCode, 3> kEndsWith{ExitCode::Ok, ExitCode::Usage, ExitCode::CannotCreate};

class HelpCommand final : public Command {
public:
    std::string_view name() const override { return "help"; }
    std::string_view summary() const override { return "Show what the program or a command does."; }
    std::string_view description() const override {
        return "Shows the list of commands, or everything about one of them.";
    }
    std::span<const PositionalDescription> positionals() const override { return kPositionals; }
    std::span<const OptionDescription> options() const override { return kOptions; }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        if (arguments.has("man")) {
            console.out << manualPage();
            return ExitCode::Ok;
        }
        const auto wanted = arguments.positional(0);
        if (arguments.positionals().empty()) {
            console.out << helpText();
            return ExitCode::Ok;
        }
        const auto* command = findCommand(wanted);
        if (!command) return complainOfUsage(console, "Unknown command " + named(wanted) + ".");
        console.out << helpText(*command);
        return ExitCode::Ok;
    }
};

} // namespace

std::unique_ptr<Command> makeHelpCommand() {
    return std::make_unique<HelpCommand>();
}

} // namespace ledgerfinch::cli
