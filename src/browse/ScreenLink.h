// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QMetaObject>
#include <QObject>

#include <functional>
#include <mutex>
#include <utility>

namespace ledgerfinch {

/// The way back to a screen for callbacks that may outlive it: holds the screen's address until the screen closes the
/// link. Shared by the screen and its callbacks.
class ScreenLink {
public:
    explicit ScreenLink(QObject& screen) : m_screen(&screen) {}

    /// Queues the block on the screen's thread; dropped when the screen is gone, now or by then. Any thread.
    void post(std::function<void()> block) {
        const std::lock_guard lock(m_mutex);
        if (m_screen) QMetaObject::invokeMethod(m_screen, std::move(block), Qt::QueuedConnection);
    }
    /// Runs the block at once, unless the screen is gone. On the screen's thread.
    void run(const std::function<void()>& block) const {
        if (m_screen) block();
    }
    /// In the screen's destructor.
    void close() {
        const std::lock_guard lock(m_mutex);
        m_screen = nullptr;
    }

private:
    std::mutex m_mutex;
    QObject* m_screen;
};

} // namespace ledgerfinch
