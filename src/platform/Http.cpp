// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Http.h"

#include "platform/DispatchQueue.h"
#include "platform/Fatal.h"
#include "platform/HttpState.h"
#include "platform/HttpWorker.h"

#include <QCoreApplication>
#include <QThread>

#include <cassert>

namespace ledgerfinch {

HttpResponse failedResponse(TransportErrorKind kind, std::string description) {
    HttpResponse response;
    response.error = TransportError{kind, std::move(description)};
    return response;
}

void HttpInbox::wake() {
    if (m_worker == nullptr || m_awake) return;
    m_awake = true;
    QMetaObject::invokeMethod(m_worker, &HttpWorker::drain, Qt::QueuedConnection);
}

void HttpInbox::start(StatePointer state) {
    const std::lock_guard lock(m_mutex);
    if (m_closed) {
        state->finish(failedResponse(TransportErrorKind::Cancelled, "The request was cancelled."));
        return;
    }
    m_mail.started.push_back(std::move(state));
    wake();
}

void HttpInbox::cancel(StatePointer state) {
    const std::lock_guard lock(m_mutex);
    if (m_closed) return;
    m_mail.cancelled.push_back(std::move(state));
    wake();
}

void HttpInbox::attach(HttpWorker* worker) {
    const std::lock_guard lock(m_mutex);
    m_worker = worker;
    wake();
}

void HttpInbox::detach() {
    const std::lock_guard lock(m_mutex);
    m_worker = nullptr;
    m_closed = true;
    for (const auto& state : m_mail.started) {
        state->finish(failedResponse(TransportErrorKind::Cancelled, "The request was cancelled."));
    }
    m_mail = {};
}

HttpInbox::Mail HttpInbox::take() {
    const std::lock_guard lock(m_mutex);
    m_awake = false;
    return std::exchange(m_mail, {});
}

void PendingResponse::State::cancel() {
    if (isFinished()) return;
    finish(failedResponse(TransportErrorKind::Cancelled, "The request was cancelled."));
    if (const auto inbox = m_inbox.lock()) inbox->cancel(shared_from_this());
}

PendingResponse& PendingResponse::operator=(PendingResponse&& other) noexcept {
    if (this != &other) {
        if (m_state) m_state->cancel();
        m_state = std::move(other.m_state);
    }
    return *this;
}

PendingResponse::~PendingResponse() {
    if (m_state) m_state->cancel();
}

HttpResponse PendingResponse::wait() {
    assert(m_state != nullptr);
    assert(!mainQueue::isCurrent() && "a request would block the window");
    return m_state->wait();
}

void PendingResponse::cancel() {
    if (m_state) m_state->cancel();
}

struct HttpSession::Private {
    class Thread final : public QThread {
    public:
        explicit Thread(std::shared_ptr<HttpInbox> inbox) : m_inbox(std::move(inbox)) {
            setObjectName(QStringLiteral("network"));
        }

    protected:
        void run() override {
            HttpWorker worker(*m_inbox);
            exec();
        }

    private:
        std::shared_ptr<HttpInbox> m_inbox;
    };

    std::shared_ptr<HttpInbox> inbox = std::make_shared<HttpInbox>();
    Thread thread{inbox};
};

HttpSession::HttpSession() : m_d(std::make_unique<Private>()) {
    // Qt runs no event loop without one, on any thread.
    if (QCoreApplication::instance() == nullptr) fatal("HttpSession needs a QCoreApplication.");
    m_d->thread.start();
}

HttpSession::~HttpSession() {
    m_d->thread.quit();
    m_d->thread.wait();
}

PendingResponse HttpSession::start(HttpRequest request) {
    auto state = std::make_shared<PendingResponse::State>(std::move(request), m_d->inbox);
    m_d->inbox->start(state);
    return PendingResponse(std::move(state));
}

} // namespace ledgerfinch
