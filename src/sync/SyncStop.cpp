// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/SyncStop.h"

namespace ledgerfinch {

void SyncStop::request() {
    {
        const std::lock_guard lock(m_mutex);
        m_requested = true;
    }
    m_wake.notify_all();
    m_cancellation.cancel();
}

bool SyncStop::isRequested() const {
    const std::lock_guard lock(m_mutex);
    return m_requested;
}

bool SyncStop::sleep(std::chrono::milliseconds duration) {
    std::unique_lock lock(m_mutex);
    return m_wake.wait_for(lock, duration, [this] { return m_requested; });
}

std::shared_ptr<SyncStop> SyncStops::next() {
    const auto stop = std::make_shared<SyncStop>();
    const std::lock_guard lock(m_mutex);
    if (m_forGood) stop->request();
    m_current = stop;
    return stop;
}

void SyncStops::stopCurrent() {
    std::shared_ptr<SyncStop> current;
    {
        const std::lock_guard lock(m_mutex);
        current = m_current.lock();
    }
    if (current) current->request();
}

void SyncStops::stopForGood() {
    {
        const std::lock_guard lock(m_mutex);
        m_forGood = true;
    }
    stopCurrent();
}

} // namespace ledgerfinch
