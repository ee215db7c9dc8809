// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ledgerfinch {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
    std::string method = "GET";
    std::string url{};
    HttpHeaders headers{};
    std::string body{};
    /// Without a byte in either direction for this long the request ends.
    std::chrono::milliseconds idleTimeout{60'000};
    /// A larger body ends the request with TransportError::TooLarge.
    std::int64_t maximumBodyBytes = 256LL * 1024 * 1024;
    /// Bytes so far and in all (-1 unknown), on the network thread.
    std::function<void(std::int64_t, std::int64_t)> downloadProgress{};
    std::function<void(std::int64_t, std::int64_t)> uploadProgress{};
};

/// Sets a header, replacing any earlier one of that name (names compare without case, RFC 9110 section 5.1).
void setHeader(HttpHeaders& headers, std::string_view name, std::string_view value);
/// Absent when there is none of that name.
std::optional<std::string> header(const HttpHeaders& headers, std::string_view name);

enum class TransportErrorKind { InvalidUrl, NoAnswer, TimedOut, Tls, CutOff, TooLarge, Cancelled };

struct TransportError {
    TransportErrorKind kind = TransportErrorKind::NoAnswer;
    std::string description{}; ///< a sentence for the person
};

/// An answer, or a transport error. After a connection that was cut in the body, both the status and the error are
/// there and the body is empty.
struct HttpResponse {
    int status = 0; ///< 0: nobody answered
    HttpHeaders headers{};
    std::string body{};
    std::optional<TransportError> error{};
    /// The address that answered, after the redirects that were followed; empty when nobody did.
    std::string url{};
    /// Where an answer with a redirect status leads that was not followed: an absolute http or https address without a
    /// user name, or empty.
    std::string redirect{};
};

/// True for absolute http and https addresses with a host.
bool isHttpUrl(std::string_view url);
/// Scheme, host and, where it isn't the usual one, port of an address: "https://papers.example.org:8443". All of an
/// address that may be shown. Empty for what isHttpUrl() refuses.
std::string originOf(std::string_view url);
/// True when scheme class, host and port are the same place: equal host and port, where https may stand for http of the
/// same host.
bool isSameServer(std::string_view firstUrl, std::string_view secondUrl);

/// A request under way. Dropping it without wait() cancels it.
class PendingResponse {
public:
    class State;
    PendingResponse() = default;
    explicit PendingResponse(std::shared_ptr<State> state) : m_state(std::move(state)) {}
    PendingResponse(PendingResponse&&) noexcept = default;
    PendingResponse& operator=(PendingResponse&& other) noexcept;
    PendingResponse(const PendingResponse&) = delete;
    PendingResponse& operator=(const PendingResponse&) = delete;
    ~PendingResponse();

    /// Blocks until the answer is in. Once only. Not on the main thread.
    HttpResponse wait();
    [[nodiscard]] bool valid() const { return m_state != nullptr; }
    /// From any thread: the waiter gets TransportErrorKind::Cancelled.
    void cancel();

private:
    std::shared_ptr<State> m_state;
};

/// The one HTTP session of the program: a QNetworkAccessManager on a thread of its own; keep-alive, HTTP/2, system
/// proxy and trust, no cookies. Redirects are followed only for GET and HEAD, at most five, only to the same server
/// (see isSameServer) and never from https to http; any other redirect answer is handed back as it is, so credentials
/// never travel to another host. Calls are thread-safe.
class HttpSession {
public:
    HttpSession();
    ~HttpSession();
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;

    PendingResponse start(HttpRequest request);
    HttpResponse send(HttpRequest request) { return start(std::move(request)).wait(); }

private:
    struct Private;
    std::unique_ptr<Private> m_d;
};

} // namespace ledgerfinch
