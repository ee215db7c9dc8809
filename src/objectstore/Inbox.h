// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ObjectID.h"

#include <atomic>
#include <functional>
#include <mutex>

namespace ledgerfinch {

class ManagedObjectContext;

/// Joins two change sets into what both together tell. Too long ones become "everything".
void append(ChangeSet& to, const ChangeSet& more);

/// Where the changes of others wait for a context. Shared by the context and its container; any thread.
class Inbox {
public:
    /// `wake` tells a context on the main thread that something waits.
    explicit Inbox(std::function<void()> wakeContext) : m_wake(std::move(wakeContext)) {}

    /// True when the box was empty: whoever pushed then wakes the context, once it holds no lock.
    bool push(const ChangeSet& changes);
    void wake() const {
        if (m_wake) m_wake();
    }
    /// Everything that waits, as one change set.
    ChangeSet take();
    [[nodiscard]] bool isEmpty() const { return !m_filled.load(std::memory_order_acquire); }

    std::atomic<bool> mergesAutomatically{false};
    /// The context, for the task that `wake` queues; null when it is gone. Main thread only.
    ManagedObjectContext* context = nullptr;

private:
    std::mutex m_mutex;
    ChangeSet m_waiting;
    std::atomic<bool> m_filled{false};
    std::function<void()> m_wake;
};

} // namespace ledgerfinch
