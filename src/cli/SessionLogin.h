// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/CompositionRoot.h"
#include "cli/Command.h"

#include <memory>

namespace ledgerfinch::cli {

struct SessionLogin {
    std::shared_ptr<ApiHandler> api; ///< null: what stands in the way was said
    ExitCode failure = ExitCode::Ok;
};

/// The stored login of the active server, for commands that talk to it. Opens the store.
SessionLogin restoreSession(Console& console, CompositionRoot& program, Cancellation& cancellation);

} // namespace ledgerfinch::cli
