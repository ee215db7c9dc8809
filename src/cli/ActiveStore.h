// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/CompositionRoot.h"
#include "cli/Command.h"

namespace ledgerfinch::cli {

/// The local store, for commands that only read; null when no server was ever connected: that was said then, and
/// `failure` is the exit code. Touches neither network nor secrets.
CoreDataHandler* storeToRead(CommandContext& context, CompositionRoot& program, ExitCode& failure);

} // namespace ledgerfinch::cli
