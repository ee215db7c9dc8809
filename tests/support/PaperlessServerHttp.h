// SPDX-License-Identifier: GPL-3.0-or-later
// The HTTP side of the sample server: connections, compression, faults. Knows nothing of documents.
#pragma once

#include "support/PaperlessServerFaults.h"
#include "support/PaperlessServerRoutes.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace ledgerfinch::support {

class HttpFace {
public:
    /// Called on a thread of the connection; must be safe for several at once.
    using Respond = std::function<Answer(const Request&)>;

    HttpFace(Respond respond, PaperlessServerFaults& faults);
    ~HttpFace();

    /// Listens on 127.0.0.1 only; port 0 takes a free one. Throws std::runtime_error when the port is taken.
    void start(int port);
    /// Ends all connections, the stalled ones too.
    void stop();
    bool isRunning() const { return m_thread.joinable(); }
    int port() const { return m_port; }

private:
    struct Server;
    Respond m_respond;
    PaperlessServerFaults& m_faults;
    std::unique_ptr<Server> m_server;
    std::thread m_thread;
    int m_port = 0;
};

} // namespace ledgerfinch::support
