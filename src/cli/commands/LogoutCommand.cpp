// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/BlockingWork.h"
#include "cli/DisplayText.h"
#include "cli/commands/Commands.h"

#include "app/CompositionRoot.h"
#include "connection/KeychainHandler.h"

#include <ostream>

namespace ledgerfinch::cli {
namespace {

class LogoutCommand final : public Command {
public:
    std::string_view name() const override { return "logout"; }
    std::string_view summary() const override { return "Forget the token of the active server."; }
    std::string_view description() const override {
        return "Removes the active server's token from the secret store. The local documents stay and can be read; log "
               "in "
               "again to sync.";
    }

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
        const auto left = runBlocking([&] {
            KeychainHandler keychain(services);
            keychain.removeToken(server);
            return keychain.readToken(server);
        });
        (void)services.defaults->set("biometricUnlock", false);
        if (left.state == SecretState::Missing) {
            console.out << "Logged out from " << printable(server) << ".\n";
            return ExitCode::Ok;
        }
        console.complain("The token could not be removed: " +
                         printable(left.reason.empty() ? "the secret store kept it." : left.reason));
        return ExitCode::Refused;
    }
};

} // namespace

std::unique_ptr<Command> makeLogoutCommand() {
    return std::make_unique<LogoutCommand>();
}

} // namespace ledgerfinch::cli
