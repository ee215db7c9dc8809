// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "app/CompositionRoot.h"
#include "cli/Command.h"

namespace ledgerfinch::cli {

/// The local store, for commands that only read; null when there is nothing to read yet: that was said then, and
/// `failure` is the exit code. Opens neither network nor secrets, and makes no store.
CoreDataHandler* storeToRead(CommandContext& context, CompositionRoot& program, ExitCode& failure);

} // namespace ledgerfinch::cli
