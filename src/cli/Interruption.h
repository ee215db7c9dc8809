// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Interrupt.h"
#include "connection/Cancellation.h"

#include <functional>

namespace ledgerfinch::cli {

/// While it lives, Ctrl-C ends the requests that are waited for with its cancellation, in place of the process. One at
/// a time. Main thread.
class Interruption {
public:
    /// `also` runs on the main thread after the requests were ended.
    explicit Interruption(std::function<void()> also = {})
        : m_watch([this, also = std::move(also)] {
              m_cancellation.cancel();
              if (also) also();
          }) {}

    [[nodiscard]] Cancellation& cancellation() { return m_cancellation; }
    [[nodiscard]] bool requested() const { return m_watch.interrupted(); }

private:
    Cancellation m_cancellation;
    InterruptWatch m_watch;
};

} // namespace ledgerfinch::cli
