// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerHttp.h"

#include <httplib.h>
#include <zlib.h>

#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <stdexcept>

namespace ledgerfinch::support {

namespace {

/// Each kept-alive connection occupies a thread.
constexpr std::size_t threadCount = 64;
constexpr std::size_t compressedLength = 500;
constexpr time_t idleSeconds = 60;

/// The open TCP sockets of this process for which `wanted` holds. The library hides them, and closing a connection at
/// a chosen byte or ending idle ones at once needs them.
template <typename Wanted>
std::vector<int> socketsWhere(Wanted wanted) {
    std::vector<int> found;
    auto* folder = opendir("/proc/self/fd");
    if (folder == nullptr) return found;
    while (const auto* entry = readdir(folder)) {
        auto descriptor = std::atoi(entry->d_name);
        if (descriptor <= 2) continue;
        sockaddr_in local{}, remote{};
        socklen_t localSize = sizeof local, remoteSize = sizeof remote;
        auto isTcp = getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &localSize) == 0 &&
                     getpeername(descriptor, reinterpret_cast<sockaddr*>(&remote), &remoteSize) == 0 &&
                     local.sin_family == AF_INET;
        if (isTcp && wanted(ntohs(local.sin_port), ntohs(remote.sin_port))) found.push_back(descriptor);
    }
    closedir(folder);
    return found;
}

std::string gzip(const std::string& body) {
    z_stream stream{};
    deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, body.size()) + 32, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(body.data()));
    stream.avail_in = uInt(body.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = uInt(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

Request requestOf(const httplib::Request& from) {
    Request request;
    request.method = from.method;
    request.target = from.target;
    auto question = std::min(from.target.find('?'), from.target.size());
    request.path = unescapeUrl(std::string_view(from.target).substr(0, question), false);
    request.query = parseQuery(std::string_view(from.target).substr(std::min(question + 1, from.target.size())));
    for (const auto& [name, value] : from.headers)
        request.headers.emplace_back(lowerAscii(name), value);
    request.body = from.body;
    request.clientAddress = from.remote_addr;
    for (const auto& [name, part] : from.files)
        request.parts.push_back({name, part.filename, part.content_type, part.content});
    if (request.header("content-type").starts_with("application/x-www-form-urlencoded")) {
        for (const auto& [name, value] : parseQuery(from.body))
            request.parts.push_back({name, {}, {}, value});
    }
    return request;
}

bool takesGzip(const httplib::Request& request) {
    return request.get_header_value("Accept-Encoding").find("gzip") != std::string::npos;
}

/// Sends the body as the fault wants it; answers false to have the connection closed.
class BodySender {
public:
    BodySender(std::shared_ptr<const std::string> body, const Fault& fault, PaperlessServerFaults& faults)
        : m_body(std::move(body)), m_cutAfter(fault.cutAfter), m_stallAfter(fault.stallAfter),
          m_stallFor(fault.stallFor), m_dripBytes(fault.dripBytes), m_dripEvery(fault.dripEvery), m_faults(faults) {}

    bool operator()(std::size_t offset, std::size_t length, httplib::DataSink& sink) {
        if (m_cutAfter && offset >= *m_cutAfter) return false;
        if (m_stallAfter && offset >= *m_stallAfter) {
            m_stallAfter.reset();
            if (!m_faults.waitStalled(m_stallFor)) return false;
        }
        auto count = length;
        if (m_cutAfter) count = std::min(count, *m_cutAfter - offset);
        if (m_stallAfter) count = std::min(count, *m_stallAfter - offset);
        if (m_dripBytes > 0) {
            if (offset > 0 && !m_faults.waitStalled(m_dripEvery)) return false;
            count = std::min(count, m_dripBytes);
        }
        return sink.write(m_body->data() + offset, count);
    }

private:
    std::shared_ptr<const std::string> m_body;
    std::optional<std::size_t> m_cutAfter;
    std::optional<std::size_t> m_stallAfter;
    std::chrono::milliseconds m_stallFor;
    std::size_t m_dripBytes;
    std::chrono::milliseconds m_dripEvery;
    PaperlessServerFaults& m_faults;
};

} // namespace

struct HttpFace::Server {
    httplib::Server http;
};

HttpFace::HttpFace(Respond respond, PaperlessServerFaults& faults) : m_respond(std::move(respond)), m_faults(faults) {}

HttpFace::~HttpFace() {
    stop();
}

namespace {

void fill(httplib::Response& to, Answer answer, const Fault& fault, const httplib::Request& request,
          PaperlessServerFaults& faults) {
    to.status = answer.status;
    std::string contentType;
    for (const auto& [name, value] : answer.headers) {
        if (fault.withoutVersion && (name == "x-version" || name == "x-api-version")) continue;
        if (name == "content-type") {
            contentType = value;
        } else {
            to.headers.emplace(name, value);
        }
    }
    if (answer.status == 204 || answer.status == 304) return;
    if (answer.body.empty()) {
        to.headers.emplace("content-length", "0");
        if (!contentType.empty()) to.headers.emplace("content-type", contentType);
        return;
    }
    if (answer.body.size() >= compressedLength && takesGzip(request)) {
        answer.body = gzip(answer.body);
        to.headers.emplace("content-encoding", "gzip");
    }
    // A provider with a known length keeps the library from compressing on its own.
    auto body = std::make_shared<const std::string>(std::move(answer.body));
    to.set_content_provider(body->size(), contentType, BodySender(body, fault, faults));
}

Answer cannedAnswer(const Fault::Canned& canned) {
    Answer answer;
    answer.status = canned.status;
    answer.headers = canned.headers;
    if (!canned.contentType.empty()) answer.headers.emplace_back("content-type", canned.contentType);
    answer.body = canned.body;
    return answer;
}

/// Sends bytes past the library and closes the connection.
void sendRaw(int localPort, const httplib::Request& request, const std::string& bytes) {
    auto sockets =
        socketsWhere([&](int local, int remote) { return local == localPort && remote == request.remote_port; });
    for (auto descriptor : sockets) {
        if (!bytes.empty()) send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        shutdown(descriptor, SHUT_RDWR);
    }
}

} // namespace

void HttpFace::start(int port) {
    stop();
    m_faults.start();
    m_server = std::make_unique<Server>();
    auto& http = m_server->http;
    http.new_task_queue = [] {
        return new httplib::ThreadPool(threadCount);
    };
    http.set_tcp_nodelay(true);
    http.set_keep_alive_max_count(1'000'000);
    http.set_keep_alive_timeout(idleSeconds);
    auto handle = [this](const httplib::Request& from, httplib::Response& to) {
        // The real server ignores ranges; the library would cut the answer.
        const_cast<httplib::Request&>(from).ranges.clear();
        auto request = requestOf(from);
        auto fault = m_faults.take(request.method, request.target).value_or(Fault{});
        Answer answer;
        if (fault.isCarriedOut) answer = m_respond(request);
        if (fault.raw) {
            sendRaw(m_port, from, *fault.raw);
            return;
        }
        if (fault.canned) answer = cannedAnswer(*fault.canned);
        if (fault.rewrite)
            answer.body = fault.rewrite(answer.body, "http://" + std::string(request.header("host")) + request.target);
        fill(to, std::move(answer), fault, from, m_faults);
    };
    constexpr auto everything = ".*";
    http.Get(everything, handle).Post(everything, handle).Put(everything, handle).Patch(everything, handle);
    http.Delete(everything, handle).Options(everything, handle);
    if (port == 0) {
        m_port = http.bind_to_any_port("127.0.0.1");
    } else {
        m_port = http.bind_to_port("127.0.0.1", port) ? port : -1;
    }
    if (m_port <= 0) throw std::runtime_error("The sample server can't listen on port " + std::to_string(port));
    m_thread = std::thread([&http] { http.listen_after_bind(); });
    while (!http.is_running())
        std::this_thread::yield();
}

void HttpFace::stop() {
    if (!m_thread.joinable()) return;
    m_faults.stop();
    m_server->http.stop();
    auto port = m_port;
    for (auto descriptor : socketsWhere([port](int local, int) { return local == port; }))
        shutdown(descriptor, SHUT_RDWR);
    m_thread.join();
    m_server.reset();
}

} // namespace ledgerfinch::support
