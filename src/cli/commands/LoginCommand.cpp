// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ConnectScreen.h"
#include "cli/DisplayText.h"
#include "cli/commands/Commands.h"

#include "app/CompositionRoot.h"
#include "connection/Instances.h"
#include "connection/screens/LoginView.h"

#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

constexpr std::array<PositionalDescription, 1> kPositionals{
    {{"URL", "The server's address: https://papers.example.org, http://192.168.1.5:8000. Without a protocol it is "
             "https://."}}};

constexpr std::array<ExitCode, 10> kEndsWith{
    ExitCode::Ok,          ExitCode::Failed,   ExitCode::Usage,        ExitCode::BadData, ExitCode::NotFound,
    ExitCode::Unreachable, ExitCode::Internal, ExitCode::CannotCreate, ExitCode::Refused, ExitCode::Interrupted};

class LoginCommand final : public Command {
public:
    std::string_view name() const override { return "login"; }
    std::string_view summary() const override { return "Connect to a document server."; }
    std::string_view description() const override {
        return "Logs in with a user name and password, or with a token, keeps the token in the desktop's secret "
               "store, gives the server a local store of its own and makes it the active one.\n\n"
               "The password or token is asked for on the terminal without echo, or read from standard input. "
               "It is never taken from the command line. A token is taken unless the server refuses it.\n\n"
               "A login that fails, or is ended with Ctrl-C, leaves everything as it was.";
    }
    std::span<const PositionalDescription> positionals() const override { return kPositionals; }
    std::span<const OptionDescription> options() const override { return loginOptions(); }
    std::string objection(std::span<const std::string> words) const override { return objectionToSecrets(words); }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments& arguments) const override {
        auto& console = context.console();
        ExitCode failure = ExitCode::Failed;
        const auto input = readLoginInput(console, arguments, arguments.positional(0), name(), failure);
        if (!input) return failure;
        if (!addresses::isValid(input->address())) {
            console.complain("Server address is invalid!");
            return ExitCode::BadData;
        }
        auto* program = context.program();
        if (!program) return context.failure();
        auto& services = program->services();
        LoginView view(services, program->core());
        fillIn(view, *input, *services.defaults);
        const bool interrupted = !runForm(view, [&] { view.login(); });
        if (view.loggedIn()) {
            tellDoubt(console, view, *input);
            console.out << "Logged in at " << printable(input->address()) << ".\n";
            return ExitCode::Ok;
        }
        return interrupted ? complainOfInterruption(console) : complainOfConnecting(console, services, view, *input);
    }
};

} // namespace

std::unique_ptr<Command> makeLoginCommand() {
    return std::make_unique<LoginCommand>();
}

} // namespace ledgerfinch::cli
