// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Http.h"

#include <mutex>
#include <vector>

namespace ledgerfinch {

/// Lets another thread end the requests that others wait for, as many as there are. Once cancelled it stays so: what
/// waits with it afterwards ends at once. Thread-safe; outlives every wait.
class Cancellation {
public:
    /// The answer, or TransportErrorKind::Cancelled as soon as it is cancelled.
    HttpResponse wait(PendingResponse pending);
    void cancel();
    [[nodiscard]] bool isCancelled() const;

private:
    mutable std::mutex m_mutex;
    std::vector<PendingResponse*> m_waiting;
    bool m_cancelled = false;
};

} // namespace ledgerfinch
