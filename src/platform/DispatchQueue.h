// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace ledgerfinch {

/// A serial queue: its tasks run one after another, in order, on one thread of its own. Dropping the queue finishes
/// what is queued, then joins.
class DispatchQueue {
public:
    explicit DispatchQueue(std::string label);
    ~DispatchQueue();
    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    void async(std::function<void()> task);
    /// Waits for the task. On the queue's own thread it runs at once.
    void sync(const std::function<void()>& task);
    [[nodiscard]] bool isCurrent() const;
    [[nodiscard]] const std::string& label() const;

private:
    struct Private;
    std::unique_ptr<Private> m_d;
};

/// The main thread, as far as the program has an event loop there (QCoreApplication).
namespace mainQueue {
[[nodiscard]] bool isCurrent();
/// Queued behind what the event loop has.
void async(std::function<void()> task);
/// Runs at once on the main thread; from another thread it waits for the event loop to run it.
void sync(const std::function<void()>& task);
} // namespace mainQueue

/// The global utility pool, for work that nobody waits for.
void runOnUtilityQueue(std::function<void()> task);

} // namespace ledgerfinch
