// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/SessionLogin.h"

#include "cli/BlockingWork.h"
#include "cli/DisplayText.h"
#include "connection/Instances.h"

namespace ledgerfinch::cli {

SessionLogin restoreSession(Console& console, CompositionRoot& program, Cancellation& cancellation) {
    auto& defaults = *program.services().defaults;
    if (defaults.boolean("offlineMode").value_or(false)) {
        console.complain("Ledgerfinch runs in offline mode, without a server. Connect with: ledgerfinch-cli login URL");
        return {nullptr, ExitCode::Refused};
    }
    // A server without an entry has no store of its own, and no sync may write into that of offline mode.
    if (!ConnectedInstances::load(defaults).find(defaults.string("server").value_or(""))) {
        console.complain("Not connected to a server yet. Connect with: ledgerfinch-cli login URL");
        return {nullptr, ExitCode::Refused};
    }
    (void)program.core();
    const auto restored = runBlocking([&] { return program.restoreLogin(&cancellation); });
    if (cancellation.isCancelled()) {
        console.complain("Stopped.");
        return {nullptr, ExitCode::Interrupted};
    }
    if (const auto* api = std::get_if<std::shared_ptr<ApiHandler>>(&restored)) return {*api, ExitCode::Ok};
    if (const auto* locked = std::get_if<CompositionRoot::SecretsUnavailable>(&restored)) {
        console.complain("The secret store that keeps the token is locked or doesn't answer: " +
                         printable(locked->reason));
        console.complain("The token is still there. Unlock the secret store and try again.");
        return {nullptr, ExitCode::Refused};
    }
    console.complain("No token found. Log in with: ledgerfinch-cli login URL");
    return {nullptr, ExitCode::Refused};
}

} // namespace ledgerfinch::cli
