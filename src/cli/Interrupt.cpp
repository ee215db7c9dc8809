// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/Interrupt.h"

#include <QSocketNotifier>

#include <array>
#include <atomic>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

std::atomic<int> wakeDescriptor{-1};
static_assert(std::atomic<int>::is_always_lock_free);

/// Only what a signal handler may do: one write, so that the event loop wakes.
void wake(int) {
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(wakeDescriptor.load(), &byte, 1);
}

} // namespace

struct InterruptWatch::Private {
    std::array<int, 2> pipe{-1, -1};
    std::array<struct sigaction, 2> before{};
    std::unique_ptr<QSocketNotifier> notifier;
    std::function<void()> onInterrupt;
    bool interrupted = false;
};

InterruptWatch::InterruptWatch(std::function<void()> onInterrupt) : m_d(std::make_unique<Private>()) {
    m_d->onInterrupt = std::move(onInterrupt);
    if (::pipe2(m_d->pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) return;
    wakeDescriptor = m_d->pipe[1];
    m_d->notifier = std::make_unique<QSocketNotifier>(m_d->pipe[0], QSocketNotifier::Read);
    QObject::connect(m_d->notifier.get(), &QSocketNotifier::activated, [d = m_d.get()] {
        char byte = 0;
        while (::read(d->pipe[0], &byte, 1) > 0) {
        }
        if (d->interrupted) return;
        d->interrupted = true;
        d->onInterrupt();
    });
    struct sigaction action {};
    action.sa_handler = wake;
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &m_d->before[0]);
    sigaction(SIGTERM, &action, &m_d->before[1]);
}

InterruptWatch::~InterruptWatch() {
    if (!m_d->notifier) return;
    sigaction(SIGINT, &m_d->before[0], nullptr);
    sigaction(SIGTERM, &m_d->before[1], nullptr);
    wakeDescriptor = -1;
    m_d->notifier.reset();
    ::close(m_d->pipe[0]);
    ::close(m_d->pipe[1]);
}

bool InterruptWatch::interrupted() const {
    return m_d->interrupted;
}

} // namespace ledgerfinch::cli
