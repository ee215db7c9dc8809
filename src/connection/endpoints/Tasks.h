// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "records/Suggestions.h"
#include "records/Task.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace ledgerfinch {

struct TaskList {
    int status = 0;
    std::vector<PaperlessTask> tasks;
};
/// The server's background tasks; empty when the answer wasn't 200 or couldn't be read.
TaskList fetchTasks(ApiHandler& api, Cancellation* cancellation = nullptr);

/// What the server proposes for a document; absent when it doesn't.
std::optional<Suggestions> fetchSuggestions(ApiHandler& api, std::int64_t documentId,
                                            Cancellation* cancellation = nullptr);

} // namespace ledgerfinch
