// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/ConnectForm.h"

#include <QPointer>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace ledgerfinch {

/// One submission. Its request can be cancelled, and its worker learns whether the result was taken.
class ConnectForm::Attempt {
public:
    Cancellation cancellation;

    void cancel() {
        cancellation.cancel();
        settle(false);
    }
    /// The first word counts.
    void settle(bool taken) {
        const std::lock_guard lock(m_mutex);
        if (!m_taken) m_taken = taken;
        m_settled.notify_all();
    }
    /// Waits until it is settled.
    bool wasTaken() {
        std::unique_lock lock(m_mutex);
        m_settled.wait(lock, [this] { return m_taken.has_value(); });
        return *m_taken;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_settled;
    std::optional<bool> m_taken;
};

ConnectForm::ConnectForm(Services& services, CoreDataHandler& core, QObject* parent)
    : QObject(parent), m_services(services), m_core(core) {
    connect(&m_customHeaders, &CustomHeadersView::configuredHeadersChanged, this, &ConnectForm::inputChanged);
}

ConnectForm::~ConnectForm() {
    // The queue waits for its task; a request that nobody wants any more must not hold it up.
    if (m_attempt) m_attempt->cancel();
    // A form that goes because its login succeeded.
    if (m_finishing) m_finishing->settle(true);
}

QStringList ConnectForm::protocols() const {
    return {QStringLiteral("http://"), QStringLiteral("https://")};
}

void ConnectForm::setLoginWithToken(bool withToken) {
    if (m_loginWithToken == withToken) return;
    m_loginWithToken = withToken;
    emit inputChanged();
}

QString ConnectForm::switchLoginText() const {
    return QStringLiteral("Log in with ") + (m_loginWithToken ? QStringLiteral("username") : QStringLiteral("token"));
}

QString ConnectForm::customHeadersText() const {
    return m_customHeaders.count() == 0 ? QStringLiteral("Add custom headers") : QStringLiteral("Edit custom headers");
}

void ConnectForm::change(QString& field, const QString& text) {
    if (field == text) return;
    field = text;
    emit inputChanged();
}

void ConnectForm::setError(const QString& text) {
    m_failure.reset();
    m_doubt.clear();
    if (m_error == text) return;
    m_error = text;
    emit errorChanged();
}

void ConnectForm::setFailure(const ApiError& failure, const std::string& text) {
    m_failure = failure;
    m_error = QString::fromStdString(text);
    emit errorChanged();
}

void ConnectForm::setDoubt(const std::string& text) {
    m_doubt = QString::fromStdString(text);
    emit errorChanged();
}

QString ConnectForm::reason() const {
    return m_failure ? QString::fromStdString(m_failure->reason()) : m_doubt;
}

std::string ConnectForm::composedAddress(const QString& server) const {
    const auto options = protocols();
    const bool whole = std::any_of(options.begin(), options.end(), [&](const QString& protocol) {
        return server.startsWith(protocol, Qt::CaseInsensitive);
    });
    return (whole ? server : m_connectionProtocol + server).toStdString();
}

void ConnectForm::cancel() {
    if (!m_attempt) return;
    m_attempt->cancel();
    m_attempt.reset();
    emit isBusyChanged();
}

void ConnectForm::run(std::function<Outcome(Cancellation&)> work) {
    if (isBusy()) return;
    m_attempt = std::make_shared<Attempt>();
    emit isBusyChanged();
    const QPointer<ConnectForm> self(this);
    m_queue.async([self, attempt = m_attempt, work = std::move(work)] {
        if (attempt->cancellation.isCancelled()) return;
        auto outcome = work(attempt->cancellation);
        mainQueue::async([self, attempt, effect = std::move(outcome.effect)] {
            if (self) self->finish(attempt, effect);
        });
        // The person may still cancel, and the effect may fail.
        if (outcome.undo && !attempt->wasTaken()) outcome.undo();
    });
}

void ConnectForm::finish(const std::shared_ptr<Attempt>& attempt, const Effect& effect) {
    if (attempt != m_attempt) return;
    const QPointer<ConnectForm> self(this);
    m_finishing = std::exchange(m_attempt, nullptr);
    attempt->settle(effect());
    if (!self) return;
    m_finishing.reset();
    emit isBusyChanged();
}

} // namespace ledgerfinch
