// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/HttpWorker.h"

#include "platform/HttpAddress.h"

#include <QHostAddress>
#include <QNetworkProxy>

#include <chrono>

namespace ledgerfinch {

namespace {

constexpr int kMostAtATime = 6;

/// The system's proxies. Asking the system can take a while, so its answer holds for a minute.
class SystemProxies final : public QNetworkProxyFactory {
public:
    QList<QNetworkProxy> queryProxy(const QNetworkProxyQuery& query) override {
        const auto host = query.peerHostName();
        if (host == QStringLiteral("localhost") || QHostAddress(host).isLoopback()) return {QNetworkProxy::NoProxy};
        const auto now = std::chrono::steady_clock::now();
        const auto key = query.protocolTag() + QStringLiteral("://") + host;
        auto& known = m_known[key];
        if (known.proxies.isEmpty() || now - known.asked > std::chrono::minutes(1)) {
            known = {systemProxyForQuery(query), now};
            if (known.proxies.isEmpty()) known.proxies = {QNetworkProxy::NoProxy};
        }
        return known.proxies;
    }

private:
    struct Known {
        QList<QNetworkProxy> proxies;
        std::chrono::steady_clock::time_point asked;
    };
    std::map<QString, Known> m_known;
};

QString serverName(const QUrl& url) {
    return url.scheme() + QStringLiteral("://") + url.host() + QLatin1Char(':') + QString::number(url.port());
}

} // namespace

HttpWorker::HttpWorker(HttpInbox& inbox) : m_inbox(inbox) {
    m_manager.setProxyFactory(new SystemProxies);
    m_manager.setAutoDeleteReplies(false);
    m_inbox.attach(this);
}

HttpWorker::~HttpWorker() {
    m_inbox.detach();
    const auto cancelled = [](const StatePointer& state) {
        state->finish(failedResponse(TransportErrorKind::Cancelled, "The request was cancelled."));
    };
    for (const auto& [state, exchange] : m_running)
        cancelled(exchange->state());
    for (const auto& [name, server] : m_servers) {
        for (const auto& state : server.waiting)
            cancelled(state);
    }
    m_running.clear();
}

void HttpWorker::drain() {
    const auto mail = m_inbox.take();
    for (const auto& state : mail.started)
        accept(state);
    for (const auto& state : mail.cancelled) {
        if (const auto found = m_running.find(state.get()); found != m_running.end()) found->second->cancel();
    }
}

void HttpWorker::accept(const StatePointer& state) {
    const auto url = parseHttpUrl(state->request.url);
    if (url.isEmpty() || !isHttpToken(state->request.method)) {
        state->finish(failedResponse(TransportErrorKind::InvalidUrl, "The address isn't valid."));
        return;
    }
    const auto name = serverName(url);
    m_servers[name].waiting.push_back(state);
    startNext(name);
}

void HttpWorker::startNext(const QString& name) {
    const auto found = m_servers.find(name);
    if (found == m_servers.end()) return;
    auto& server = found->second;
    while (server.running < kMostAtATime && !server.waiting.empty()) {
        const auto state = std::move(server.waiting.front());
        server.waiting.pop_front();
        if (state->isFinished()) continue; // cancelled while it waited
        ++server.running;
        auto exchange = std::make_unique<HttpExchange>(m_manager, state, parseHttpUrl(state->request.url),
                                                       [this, name](HttpExchange& done) { ended(done, name); });
        auto& running = *exchange;
        m_running.emplace(state.get(), std::move(exchange));
        running.send();
    }
    if (server.running == 0) m_servers.erase(found);
}

void HttpWorker::ended(HttpExchange& exchange, const QString& name) {
    const auto found = m_running.find(exchange.state().get());
    if (found != m_running.end()) {
        // It is still on the stack.
        found->second.release()->deleteLater();
        m_running.erase(found);
    }
    --m_servers[name].running;
    startNext(name);
}

} // namespace ledgerfinch
