// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Http.h"

#include <mutex>

namespace ledgerfinch {

/// Lets another thread end the request that one thread waits for. Once cancelled it stays so.
class Cancellation {
public:
    HttpResponse wait(PendingResponse pending);
    void cancel();
    [[nodiscard]] bool isCancelled() const;

private:
    mutable std::mutex m_mutex;
    PendingResponse* m_current = nullptr;
    bool m_cancelled = false;
};

} // namespace ledgerfinch
