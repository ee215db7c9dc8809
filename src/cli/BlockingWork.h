// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/DispatchQueue.h"

#include <QEventLoop>

#include <optional>
#include <type_traits>

namespace ledgerfinch::cli {

/// Runs work that blocks on a queue of its own, while the main thread serves its event loop, and hands back what it
/// gave. Main thread.
template <class Work>
auto runBlocking(Work&& work) -> std::invoke_result_t<Work> {
    using Value = std::invoke_result_t<Work>;
    QEventLoop loop;
    DispatchQueue queue("updateData");
    if constexpr (std::is_void_v<Value>) {
        queue.async([&] {
            work();
            mainQueue::async([&] { loop.quit(); });
        });
        loop.exec();
    } else {
        std::optional<Value> value;
        queue.async([&] {
            value.emplace(work());
            mainQueue::async([&] { loop.quit(); });
        });
        loop.exec();
        return std::move(*value);
    }
}

} // namespace ledgerfinch::cli
