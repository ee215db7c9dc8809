// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <QCoreApplication>
#include <QEventLoop>

#include <chrono>
#include <functional>
#include <future>

namespace ledgerfinch::test {

/// Runs what blocks on a thread of its own while the main thread goes on with its events.
template <class Function>
auto offMain(Function function) {
    auto result = std::async(std::launch::async, std::move(function));
    while (result.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
    return result.get();
}

/// Lets the main thread work until the condition holds; false after ten seconds.
inline bool waitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents, 5);
    }
    return true;
}

} // namespace ledgerfinch::test
