// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Http.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <semaphore>
#include <vector>

namespace ledgerfinch {

class HttpWorker;

/// The way from any thread to the network thread. Requests that come after the worker left are answered as cancelled.
class HttpInbox {
public:
    using StatePointer = std::shared_ptr<PendingResponse::State>;
    struct Mail {
        std::vector<StatePointer> started;
        std::vector<StatePointer> cancelled;
    };

    void start(StatePointer state);
    void cancel(StatePointer state);

    /// For the worker, on its thread: from now on it is woken for mail.
    void attach(HttpWorker* worker);
    void detach();
    Mail take();

private:
    /// Under the mutex.
    void wake();

    std::mutex m_mutex;
    HttpWorker* m_worker = nullptr;
    bool m_closed = false;
    bool m_awake = false;
    Mail m_mail;
};

/// A request and, once, its answer. The first answer counts: a cancelled waiter isn't answered again.
class PendingResponse::State : public std::enable_shared_from_this<State> {
public:
    State(HttpRequest asked, std::weak_ptr<HttpInbox> inbox) : request(std::move(asked)), m_inbox(std::move(inbox)) {}

    void finish(HttpResponse response) {
        if (m_finished.exchange(true)) return;
        m_response = std::move(response);
        m_done.release();
    }
    [[nodiscard]] bool isFinished() const { return m_finished; }

    HttpResponse wait() {
        m_done.acquire();
        return std::move(m_response);
    }

    void cancel();

    const HttpRequest request;

private:
    std::weak_ptr<HttpInbox> m_inbox;
    std::atomic<bool> m_finished{false};
    HttpResponse m_response;
    std::binary_semaphore m_done{0};
};

/// An answer that is only a transport error.
HttpResponse failedResponse(TransportErrorKind kind, std::string description);

} // namespace ledgerfinch
