// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <memory>

namespace ledgerfinch::cli {

/// While it lives, SIGINT and SIGTERM call back once on the main thread's event loop instead of ending the process; a
/// second one ends it as usual. One at a time.
class InterruptWatch {
public:
    explicit InterruptWatch(std::function<void()> onInterrupt);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    [[nodiscard]] bool interrupted() const;

private:
    struct Private;
    std::unique_ptr<Private> m_d;
};

} // namespace ledgerfinch::cli
