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
    /// `wake` is called when something comes into the empty box (for a context on the main thread).
    explicit Inbox(std::function<void()> wake) : m_wake(std::move(wake)) {}

    void push(const ChangeSet& changes);
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
