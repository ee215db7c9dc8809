// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/HttpExchange.h"

#include <deque>
#include <map>
#include <unordered_map>

namespace ledgerfinch {

/// Lives on the network thread and keeps the requests under way. At most six per server run at a time, as many as Qt
/// opens connections; the others wait here, where no time-out counts against them.
class HttpWorker final : public QObject {
public:
    explicit HttpWorker(HttpInbox& inbox);
    ~HttpWorker() override;

    /// Takes what came in.
    void drain();

private:
    using StatePointer = HttpInbox::StatePointer;
    struct Server {
        int running = 0;
        std::deque<StatePointer> waiting;
    };

    void accept(const StatePointer& state);
    void startNext(const QString& serverName);
    void ended(HttpExchange& exchange, const QString& serverName);

    HttpInbox& m_inbox;
    QNetworkAccessManager m_manager;
    std::map<QString, Server> m_servers;
    std::unordered_map<const PendingResponse::State*, std::unique_ptr<HttpExchange>> m_running;
};

} // namespace ledgerfinch
