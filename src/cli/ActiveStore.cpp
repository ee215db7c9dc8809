// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ActiveStore.h"

#include "connection/Instances.h"

namespace ledgerfinch::cli {

CoreDataHandler* storeToRead(CommandContext& context, CompositionRoot& program, ExitCode& failure) {
    auto& defaults = *program.services().defaults;
    const auto server = defaults.string("server").value_or("");
    const bool connected = ConnectedInstances::load(defaults).find(server) != nullptr;
    const bool offline = defaults.boolean("offlineMode").value_or(false);
    if (!connected && !offline) {
        context.console().complain("Not connected to a server yet. Connect with: ledgerfinch-cli login URL");
        failure = ExitCode::Refused;
        return nullptr;
    }
    return &program.core();
}

} // namespace ledgerfinch::cli
