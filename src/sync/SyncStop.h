// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/Cancellation.h"

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>

namespace ledgerfinch {

/// The wish that a piece of work ends: asked for between its steps, it also wakes who sleeps and ends the request that
/// waits. Thread-safe.
class SyncStop {
public:
    void request();
    [[nodiscard]] bool isRequested() const;
    /// Sleeps for a while; true at once when the end is wished.
    bool sleep(std::chrono::milliseconds duration);
    /// For requests; lives as long as this.
    [[nodiscard]] Cancellation& cancellation() { return m_cancellation; }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_requested = false;
    Cancellation m_cancellation;
};

/// The passes that one owner runs, one after the other, and how they are ended. Thread-safe.
class SyncStops {
public:
    /// For the next pass; the wish is there already when the owner was stopped for good.
    std::shared_ptr<SyncStop> next();
    /// Ends the pass under way.
    void stopCurrent();
    /// Ends it, and every later one before it begins.
    void stopForGood();

private:
    std::mutex m_mutex;
    bool m_forGood = false;
    std::weak_ptr<SyncStop> m_current;
};

} // namespace ledgerfinch
