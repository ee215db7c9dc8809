// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/Cancellation.h"

namespace ledgerfinch {

HttpResponse Cancellation::wait(PendingResponse pending) {
    {
        const std::lock_guard lock(m_mutex);
        m_waiting.push_back(&pending);
        if (m_cancelled) pending.cancel();
    }
    auto response = pending.wait();
    const std::lock_guard lock(m_mutex);
    std::erase(m_waiting, &pending);
    return response;
}

void Cancellation::cancel() {
    const std::lock_guard lock(m_mutex);
    m_cancelled = true;
    for (auto* pending : m_waiting)
        pending->cancel();
}

bool Cancellation::isCancelled() const {
    const std::lock_guard lock(m_mutex);
    return m_cancelled;
}

} // namespace ledgerfinch
