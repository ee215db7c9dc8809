// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/ConnectForm.h"

#include <QPointer>

#include <algorithm>

namespace ledgerfinch {

ConnectForm::ConnectForm(Services& services, CoreDataHandler& core, QObject* parent)
    : QObject(parent), m_services(services), m_core(core) {
    connect(&m_customHeaders, &CustomHeadersView::configuredHeadersChanged, this, &ConnectForm::inputChanged);
}

ConnectForm::~ConnectForm() {
    // The queue waits for its task; a request that nobody wants any more must not hold it up.
    if (m_cancellation) m_cancellation->cancel();
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
    if (m_error == text) return;
    m_error = text;
    emit errorChanged();
}

std::string ConnectForm::composedAddress(const QString& server) const {
    const auto options = protocols();
    const bool whole = std::any_of(options.begin(), options.end(), [&](const QString& protocol) {
        return server.startsWith(protocol, Qt::CaseInsensitive);
    });
    return (whole ? server : m_connectionProtocol + server).toStdString();
}

void ConnectForm::cancel() {
    if (!m_cancellation) return;
    m_cancellation->cancel();
    m_cancellation.reset();
    emit isBusyChanged();
}

void ConnectForm::run(std::function<Effect(Cancellation&)> work) {
    if (isBusy()) return;
    m_cancellation = std::make_shared<Cancellation>();
    emit isBusyChanged();
    const QPointer<ConnectForm> self(this);
    m_queue.async([self, cancellation = m_cancellation, work = std::move(work)] {
        if (cancellation->isCancelled()) return;
        auto effect = work(*cancellation);
        mainQueue::async([self, cancellation, effect = std::move(effect)] {
            if (self) self->finish(cancellation, effect);
        });
    });
}

void ConnectForm::finish(const std::shared_ptr<Cancellation>& cancellation, const Effect& effect) {
    if (cancellation != m_cancellation) return;
    m_cancellation.reset();
    effect();
    emit isBusyChanged();
}

} // namespace ledgerfinch
