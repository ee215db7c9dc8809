// SPDX-License-Identifier: GPL-3.0-or-later
// The worker that turns uploads into documents.
#pragma once

#include "support/PaperlessServerRecords.h"

namespace ledgerfinch::support {

/// Pending becomes started, started becomes done. A done task stays as it is.
void advanceTask(State& state, Task& task);

/// A new pending task of the user that nobody is; the reference holds until it is removed.
Task& addTask(State& state, TaskKind kind);

/// Takes the task to its end where the pace is immediate.
void finishAtOnce(State& state, Task& task);

} // namespace ledgerfinch::support
