// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/ScriptedServer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ledgerfinch::test {

namespace {

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    return result;
}

} // namespace

std::optional<std::string> ServerRequest::header(std::string_view name) const {
    const auto lines = lowered(head);
    const auto start = lines.find("\r\n" + lowered(name) + ":");
    if (start == std::string::npos) return std::nullopt;
    auto from = start + name.size() + 3;
    while (from < head.size() && head[from] == ' ')
        ++from;
    return head.substr(from, head.find("\r\n", from) - from);
}

bool ServerConnection::readMore() {
    char bytes[65536];
    const auto count = ::recv(m_descriptor, bytes, sizeof bytes, 0);
    if (count <= 0) return false;
    m_buffer.append(bytes, static_cast<std::size_t>(count));
    return true;
}

std::optional<ServerRequest> ServerConnection::readRequest() {
    std::size_t end = 0;
    while ((end = m_buffer.find("\r\n\r\n")) == std::string::npos) {
        if (!readMore()) return std::nullopt;
    }
    ServerRequest request;
    request.head = m_buffer.substr(0, end + 2);
    m_buffer.erase(0, end + 4);
    const auto blank = request.head.find(' ');
    request.method = request.head.substr(0, blank);
    request.target = request.head.substr(blank + 1, request.head.find(' ', blank + 1) - blank - 1);
    const auto length = static_cast<std::size_t>(std::atoll(request.header("Content-Length").value_or("0").c_str()));
    while (m_buffer.size() < length) {
        if (!readMore()) return std::nullopt;
    }
    request.body = m_buffer.substr(0, length);
    m_buffer.erase(0, length);
    return request;
}

void ServerConnection::send(std::string_view bytes) const {
    while (!bytes.empty()) {
        const auto count = ::send(m_descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (count <= 0) return;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void ServerConnection::answer(int status, std::string_view body, std::string_view headers) const {
    std::string text = "HTTP/1.1 " + std::to_string(status) + " Answer\r\n" + std::string(headers);
    if (status != 204 && status != 304) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    send(text + "\r\n" + std::string(body));
}

void ServerConnection::waitForClose() {
    while (readMore())
        m_buffer.clear();
}

ScriptedServer::ScriptedServer(Script script) : m_script(std::move(script)) {
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(m_listener, generic, size) != 0 || ::listen(m_listener, 64) != 0 ||
        ::getsockname(m_listener, generic, &size) != 0) {
        std::abort();
    }
    m_port = ntohs(address.sin_port);
    m_thread = std::thread([this] { accept(); });
}

ScriptedServer::~ScriptedServer() {
    m_ending = true;
    ::shutdown(m_listener, SHUT_RDWR);
    m_thread.join();
    {
        const std::lock_guard lock(m_mutex);
        for (const int descriptor : m_open)
            ::shutdown(descriptor, SHUT_RDWR);
    }
    for (auto& connection : m_connections)
        connection.join();
    ::close(m_listener);
}

std::string ScriptedServer::url(std::string_view path) const {
    return "http://127.0.0.1:" + std::to_string(m_port) + std::string(path);
}

void ScriptedServer::accept() {
    while (!m_ending) {
        const int descriptor = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (descriptor < 0) continue;
        const int on = 1;
        ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        const std::lock_guard lock(m_mutex);
        m_open.push_back(descriptor);
        m_connections.emplace_back([this, descriptor] {
            ServerConnection connection(descriptor);
            m_script(connection);
            const std::lock_guard guard(m_mutex);
            std::erase(m_open, descriptor);
            ::close(descriptor);
        });
    }
}

ScriptedServer::Script answering(std::function<void(ServerConnection&, const ServerRequest&)> answer) {
    return [answer = std::move(answer)](ServerConnection& connection) {
        while (const auto request = connection.readRequest())
            answer(connection, *request);
    };
}

} // namespace ledgerfinch::test
