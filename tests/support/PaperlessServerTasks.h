// SPDX-License-Identifier: GPL-3.0-or-later
// The worker that turns uploads into documents.
#pragma once

#include "support/PaperlessServerRecords.h"

namespace ledgerfinch::support {

/// Pending becomes started, started becomes done. A done task stays as it is.
void advanceTask(State& state, Task& task);

} // namespace ledgerfinch::support
