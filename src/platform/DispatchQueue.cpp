// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/DispatchQueue.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QThread>
#include <QThreadPool>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <pthread.h>
#include <semaphore>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace ledgerfinch {

namespace {

/// What a waiter of sync() gets back: that the task ended, and what it threw.
struct Completion {
    std::binary_semaphore done{0};
    std::exception_ptr thrown;

    void run(const std::function<void()>& task) {
        try {
            task();
        } catch (...) {
            thrown = std::current_exception();
        }
    }

    void wait() {
        done.acquire();
        if (thrown) std::rethrow_exception(thrown);
    }
};

/// Releases the waiter when the last copy of a posted task goes: after it ran, or with an event loop that ended before.
std::shared_ptr<void> releaseAtEnd(const std::shared_ptr<Completion>& completion) {
    return {nullptr, [completion](std::nullptr_t) {
                completion->done.release();
            }};
}

} // namespace

/// Shared with the thread, so that a queue dropped by one of its own tasks can leave its thread to end by itself.
struct DispatchQueue::Private {
    struct Shared {
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<std::function<void()>> tasks;
        bool ending = false;
        std::string label;

        void run() {
            // The system's limit is 15 characters.
            ::pthread_setname_np(::pthread_self(), label.substr(0, 15).c_str());
            std::unique_lock lock(mutex);
            while (true) {
                wake.wait(lock, [this] { return ending || !tasks.empty(); });
                if (tasks.empty()) return;
                auto task = std::move(tasks.front());
                tasks.pop_front();
                lock.unlock();
                task();
                task = nullptr;
                lock.lock();
            }
        }
    };

    std::shared_ptr<Shared> shared = std::make_shared<Shared>();
    std::thread thread;
};

DispatchQueue::DispatchQueue(std::string label) : m_d(std::make_unique<Private>()) {
    m_d->shared->label = std::move(label);
    m_d->thread = std::thread([shared = m_d->shared] { shared->run(); });
}

DispatchQueue::~DispatchQueue() {
    {
        const std::lock_guard lock(m_d->shared->mutex);
        m_d->shared->ending = true;
    }
    m_d->shared->wake.notify_one();
    if (isCurrent()) {
        m_d->thread.detach();
    } else {
        m_d->thread.join();
    }
}

void DispatchQueue::async(std::function<void()> task) {
    {
        const std::lock_guard lock(m_d->shared->mutex);
        m_d->shared->tasks.push_back(std::move(task));
    }
    m_d->shared->wake.notify_one();
}

void DispatchQueue::sync(const std::function<void()>& task) {
    if (isCurrent()) {
        task();
        return;
    }
    const auto completion = std::make_shared<Completion>();
    async([completion, &task] {
        completion->run(task);
        completion->done.release();
    });
    completion->wait();
}

bool DispatchQueue::isCurrent() const {
    return std::this_thread::get_id() == m_d->thread.get_id();
}

const std::string& DispatchQueue::label() const {
    return m_d->shared->label;
}

namespace mainQueue {

bool isCurrent() {
    if (const auto* application = QCoreApplication::instance()) {
        return QThread::currentThread() == application->thread();
    }
    return ::syscall(SYS_gettid) == ::getpid();
}

void async(std::function<void()> task) {
    if (auto* application = QCoreApplication::instance()) {
        QMetaObject::invokeMethod(application, std::move(task), Qt::QueuedConnection);
    } else {
        task();
    }
}

void sync(const std::function<void()>& task) {
    if (QCoreApplication::instance() == nullptr || isCurrent()) {
        task();
        return;
    }
    const auto completion = std::make_shared<Completion>();
    async([completion, &task, atEnd = releaseAtEnd(completion)] { completion->run(task); });
    completion->wait();
}

} // namespace mainQueue

void runOnUtilityQueue(std::function<void()> task) {
    // A pool of our own: its tasks wait for the network, which must not hold up what Qt does in its global pool.
    struct Pool : QThreadPool {
        Pool() { setMaxThreadCount(std::max(4, QThread::idealThreadCount())); }
    };
    static Pool pool;
    pool.start(std::move(task));
}

} // namespace ledgerfinch
