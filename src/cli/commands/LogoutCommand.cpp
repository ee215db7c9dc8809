// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/BlockingWork.h"
#include "cli/DisplayText.h"
#include "cli/ServerFailure.h"
#include "cli/commands/Commands.h"

#include "app/CompositionRoot.h"
#include "connection/RemoveInstance.h"

#include <array>
#include <ostream>

namespace ledgerfinch::cli {
namespace {

constexpr std::array<ExitCode, 5> kEndsWith{ExitCode::Ok, ExitCode::Usage, ExitCode::Internal, ExitCode::CannotCreate,
                                            ExitCode::Refused};

class LogoutCommand final : public Command {
public:
    std::string_view name() const override { return "logout"; }
    std::string_view summary() const override { return "Forget the token of the active server."; }
    std::string_view description() const override {
        return "Removes the active server's token from the secret store. The local documents stay and can be read; log "
               "in "
               "again to sync.";
    }
    std::span<const ExitCode> exitCodes() const override { return kEndsWith; }

    ExitCode execute(CommandContext& context, const Arguments&) const override {
        auto& console = context.console();
        auto* program = context.program();
        if (!program) return context.failure();
        auto& services = program->services();
        const auto server = services.defaults->string("server").value_or("");
        if (server.empty()) {
            console.complain("Not connected to a server.");
            return ExitCode::Refused;
        }
        if (const auto failure = runBlocking([&] { return logOut(services); }))
            return complainOf(console, services, server, *failure);
        console.out << "Logged out from " << printable(server) << ".\n";
        return ExitCode::Ok;
    }
};

} // namespace

std::unique_ptr<Command> makeLogoutCommand() {
    return std::make_unique<LogoutCommand>();
}

} // namespace ledgerfinch::cli
