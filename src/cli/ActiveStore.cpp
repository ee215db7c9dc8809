// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ActiveStore.h"

namespace ledgerfinch::cli {

CoreDataHandler* storeToRead(CommandContext& context, CompositionRoot& program) {
    std::error_code ignored;
    if (!std::filesystem::exists(program.activeStoreFile(), ignored)) {
        const bool connected = !program.services().defaults->string("server").value_or("").empty();
        context.console().complain(connected ? "There are no documents here yet. Fetch them with: ledgerfinch-cli sync"
                                             : "Not connected to a server yet. Connect with: ledgerfinch-cli login URL");
        return nullptr;
    }
    return &program.core();
}

} // namespace ledgerfinch::cli
