// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace ledgerfinch::test {

struct ServerRequest {
    std::string method;
    std::string target;
    std::string head; ///< all lines, the first included
    std::string body;

    /// The value of a header, whatever its case.
    [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// One accepted connection, in the hands of the script.
class ServerConnection {
public:
    explicit ServerConnection(int descriptor) : m_descriptor(descriptor) {}
    /// Nothing when the client closed.
    std::optional<ServerRequest> readRequest();
    void send(std::string_view bytes) const;
    /// "HTTP/1.1 <status> X", the headers (each with CR LF), a Content-Length and the body.
    void answer(int status, std::string_view body, std::string_view headers = {}) const;
    void waitForClose();

private:
    bool readMore();

    int m_descriptor;
    std::string m_buffer;
};

/// A TCP server on loopback whose connections are played by a script, each on a thread of its own. The connection ends
/// when the script returns.
class ScriptedServer {
public:
    using Script = std::function<void(ServerConnection&)>;

    explicit ScriptedServer(Script script);
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer();

    [[nodiscard]] int port() const { return m_port; }
    [[nodiscard]] std::string url(std::string_view path = "/") const;

private:
    void accept();

    Script m_script;
    int m_listener = -1;
    int m_port = 0;
    std::atomic<bool> m_ending{false};
    std::mutex m_mutex;
    std::vector<int> m_open;
    std::vector<std::thread> m_connections;
    std::thread m_thread;
};

/// Answers every request of a connection by the function, until the client closes.
ScriptedServer::Script answering(std::function<void(ServerConnection&, const ServerRequest&)> answer);

} // namespace ledgerfinch::test
