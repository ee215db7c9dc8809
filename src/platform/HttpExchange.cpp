// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/HttpExchange.h"

#include "platform/HttpAddress.h"
#include "platform/HttpBody.h"

#include <QSslError>

#include <algorithm>
#include <array>

namespace ledgerfinch {

namespace {

constexpr int kMostRedirects = 5;
constexpr std::chrono::milliseconds kDefaultIdleTimeout{60'000};
const QByteArray kUserAgent = QByteArrayLiteral("Ledgerfinch/" LEDGERFINCH_VERSION);

QByteArray bytes(std::string_view text) {
    return {text.data(), static_cast<qsizetype>(text.size())};
}

/// Qt reports a status of 400 and more as an error too; for us it is an answer.
bool tellsOfStatus(QNetworkReply::NetworkError error) {
    if (error == QNetworkReply::ContentReSendError) return false;
    const bool content = error > QNetworkReply::UnknownProxyError && error <= QNetworkReply::UnknownContentError;
    const bool server = error >= QNetworkReply::InternalServerError && error <= QNetworkReply::UnknownServerError;
    return content || server || error == QNetworkReply::ProxyAuthenticationRequiredError ||
           error == QNetworkReply::ProtocolInvalidOperationError;
}

bool hasBody(const std::string& method, int status) {
    return method != "HEAD" && status != 204 && status != 304;
}

} // namespace

HttpExchange::HttpExchange(QNetworkAccessManager& manager, std::shared_ptr<PendingResponse::State> state, QUrl url,
                           Finished finished)
    : m_manager(manager), m_state(std::move(state)), m_url(std::move(url)), m_finished(std::move(finished)) {}

HttpExchange::~HttpExchange() {
    if (m_reply == nullptr) return;
    m_reply->disconnect(this);
    m_reply->abort();
    m_reply->deleteLater();
}

QNetworkRequest HttpExchange::networkRequest() const {
    const auto& asked = m_state->request;
    QNetworkRequest request(m_url);
    request.setRawHeader(QByteArrayLiteral("User-Agent"), kUserAgent);
    // Naming an encoding also keeps Qt from unpacking by itself.
    request.setRawHeader(QByteArrayLiteral("Accept-Encoding"), QByteArrayLiteral("gzip"));
    for (const auto& [name, value] : asked.headers) {
        if (isSendableHeader(name, value)) request.setRawHeader(bytes(name), bytes(value));
    }
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    request.setAttribute(QNetworkRequest::CookieLoadControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CookieSaveControlAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::AuthenticationReuseAttribute, QNetworkRequest::Manual);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute, QNetworkRequest::AlwaysNetwork);
    request.setAttribute(QNetworkRequest::CacheSaveControlAttribute, false);
    request.setAttribute(QNetworkRequest::DoNotBufferUploadDataAttribute, true);
    const auto timeout = asked.idleTimeout.count() > 0 ? asked.idleTimeout : kDefaultIdleTimeout;
    request.setTransferTimeout(static_cast<int>(std::min<std::int64_t>(timeout.count(), 24 * 3600 * 1000)));
    return request;
}

void HttpExchange::send() {
    auto request = networkRequest();
    m_announcedLength = -1;
    m_receivedLength = 0;
    m_inflater.reset();
    m_body.clear();
    m_tlsRefusal.clear();
    m_reply = dispatch(request);
    connect(m_reply, &QNetworkReply::metaDataChanged, this, &HttpExchange::receiveHead);
    connect(m_reply, &QNetworkReply::readyRead, this, &HttpExchange::receiveBody);
    connect(m_reply, &QNetworkReply::finished, this, &HttpExchange::conclude);
    connect(m_reply, &QNetworkReply::sslErrors, this, [this](const QList<QSslError>& errors) {
        if (!errors.isEmpty()) m_tlsRefusal = errors.first().errorString().toStdString();
    });
    if (m_state->request.uploadProgress) {
        connect(m_reply, &QNetworkReply::uploadProgress, this, [this](qint64 sent, qint64 total) {
            // The last signal of an upload says 0 of 0.
            if (total != 0 && !m_state->isFinished()) m_state->request.uploadProgress(sent, total);
        });
    }
}

QNetworkReply* HttpExchange::dispatch(const QNetworkRequest& asked) {
    const auto& method = m_state->request.method;
    const bool empty = m_state->request.body.empty();
    if (empty && method == "GET") return m_manager.get(asked);
    if (empty && method == "HEAD") return m_manager.head(asked);
    if (empty && method == "DELETE") return m_manager.deleteResource(asked);

    auto request = asked;
    if (!request.hasRawHeader("Content-Type")) {
        request.setRawHeader(QByteArrayLiteral("Content-Type"), QByteArrayLiteral("application/octet-stream"));
    }
    auto* body = new HttpBody(m_state, nullptr);
    request.setHeader(QNetworkRequest::ContentLengthHeader, body->size());
    auto* reply = method == "POST"  ? m_manager.post(request, body)
                  : method == "PUT" ? m_manager.put(request, body)
                                    : m_manager.sendCustomRequest(request, bytes(method), body);
    body->setParent(reply);
    return reply;
}

void HttpExchange::receiveHead() {
    const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (!hasBody(m_state->request.method, status)) return;
    const auto encoding = m_reply->rawHeader("Content-Encoding").trimmed().toLower();
    const bool packed = encoding == "gzip" || encoding == "x-gzip" || encoding == "deflate";
    // A caller that names encodings gets what it asked for.
    if (packed && !header(m_state->request.headers, "Accept-Encoding")) m_inflater = std::make_unique<Inflater>();

    bool known = false;
    const auto length = m_reply->rawHeader("Content-Length").toLongLong(&known);
    if (!known || length < 0 || m_reply->hasRawHeader("Transfer-Encoding")) return;
    m_announcedLength = length;
    if (length > m_state->request.maximumBodyBytes) {
        endEarly(Ending::TooLarge);
    } else if (!m_inflater) {
        m_body.reserve(static_cast<std::size_t>(length));
    }
}

void HttpExchange::receiveBody() {
    if (m_ending != Ending::Natural) return;
    const auto available = m_reply->bytesAvailable();
    if (available <= 0) return;
    m_receivedLength += available;
    if (m_inflater) {
        appendPacked();
    } else {
        appendPlain(available);
    }
    if (m_ending == Ending::Natural && m_state->request.downloadProgress && !m_state->isFinished()) {
        m_state->request.downloadProgress(m_receivedLength, m_announcedLength);
    }
}

void HttpExchange::appendPlain(std::int64_t available) {
    const auto before = m_body.size();
    if (static_cast<std::int64_t>(before) + available > m_state->request.maximumBodyBytes) {
        endEarly(Ending::TooLarge);
        return;
    }
    m_body.resize(before + static_cast<std::size_t>(available));
    const auto count = std::max<qint64>(0, m_reply->read(m_body.data() + before, available));
    m_body.resize(before + static_cast<std::size_t>(count));
}

void HttpExchange::appendPacked() {
    const auto piece = m_reply->readAll();
    const std::string_view view(piece.data(), static_cast<std::size_t>(piece.size()));
    const auto status = m_inflater->add(view, m_body, m_state->request.maximumBodyBytes);
    if (status == Inflater::Status::TooLarge) endEarly(Ending::TooLarge);
    if (status == Inflater::Status::Broken) endEarly(Ending::Broken);
}

void HttpExchange::cancel() {
    endEarly(Ending::Cancelled);
}

void HttpExchange::endEarly(Ending ending) {
    m_ending = ending;
    // Leads to conclude() before it returns.
    if (m_reply != nullptr) m_reply->abort();
}

QUrl HttpExchange::redirectTarget(int status) const {
    static constexpr std::array<int, 5> kRedirects{301, 302, 303, 307, 308};
    if (std::find(kRedirects.begin(), kRedirects.end(), status) == kRedirects.end()) return {};
    const auto location = m_reply->rawHeader("Location");
    if (location.isEmpty()) return {};
    const auto resolved = m_url.resolved(QUrl::fromEncoded(location)).toEncoded();
    return parseHttpUrl(std::string_view(resolved.data(), static_cast<std::size_t>(resolved.size())));
}

bool HttpExchange::mayFollow(const QUrl& target) const {
    const auto& method = m_state->request.method;
    if (target.isEmpty() || (method != "GET" && method != "HEAD") || m_redirects >= kMostRedirects) return false;
    const bool downgrade = m_url.scheme() == QStringLiteral("https") && target.scheme() != QStringLiteral("https");
    return !downgrade && target.userInfo().isEmpty() && isSameServer(m_url, target);
}

/// Qt reports a chunked body that breaks off, except one that came to its end in the very read that began it. A
/// promised length and a packed stream are checked here in any case.
bool HttpExchange::isCutOff(int status) const {
    if (!hasBody(m_state->request.method, status)) return false;
    if (m_inflater && !m_inflater->isComplete()) return true;
    return m_announcedLength >= 0 && m_receivedLength != m_announcedLength;
}

std::string HttpExchange::describe() const {
    auto text = m_reply->errorString();
    // An address can hold a token; the host says enough.
    text.replace(m_url.toString(), m_url.host());
    text.replace(m_url.toDisplayString(), m_url.host());
    return text.toStdString();
}

std::optional<TransportError> HttpExchange::transportError(int status) const {
    const auto error = m_reply->error();
    if (m_ending == Ending::Cancelled)
        return TransportError{TransportErrorKind::Cancelled, "The request was cancelled."};
    if (m_ending == Ending::TooLarge) {
        return TransportError{TransportErrorKind::TooLarge, "The server's answer is too large."};
    }
    if (m_ending == Ending::Broken) {
        return TransportError{TransportErrorKind::CutOff, "The server's answer is damaged."};
    }
    if (error == QNetworkReply::OperationCanceledError || error == QNetworkReply::TimeoutError) {
        return TransportError{TransportErrorKind::TimedOut, "The request timed out."};
    }
    if (error == QNetworkReply::SslHandshakeFailedError) {
        return TransportError{TransportErrorKind::Tls, "A secure connection couldn't be made: " +
                                                           (m_tlsRefusal.empty() ? describe() : m_tlsRefusal) + "."};
    }
    // Qt would send a body anew to where such an answer leads, and fails over that ours begins only once. What it says
    // of itself doesn't matter.
    if (error == QNetworkReply::ContentReSendError && (status == 307 || status == 308)) return std::nullopt;
    const bool answered = error == QNetworkReply::NoError || (status >= 400 && tellsOfStatus(error));
    if (status > 0 && (!answered || isCutOff(status))) {
        return TransportError{TransportErrorKind::CutOff, "The connection was lost before the answer was complete."};
    }
    if (answered && status > 0) return std::nullopt;
    if (error == QNetworkReply::RemoteHostClosedError || error == QNetworkReply::ContentReSendError) {
        return TransportError{TransportErrorKind::NoAnswer, "The server closed the connection without an answer."};
    }
    if (error == QNetworkReply::NoError || error == QNetworkReply::ProtocolFailure) {
        return TransportError{TransportErrorKind::NoAnswer, "The server's answer isn't HTTP."};
    }
    return TransportError{TransportErrorKind::NoAnswer, describe()};
}

void HttpExchange::conclude() {
    receiveBody();
    if (m_reply == nullptr) return;
    const int status = m_reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    HttpResponse response;
    response.status = status;
    response.error = transportError(status);
    if (!response.error) {
        auto target = redirectTarget(status);
        if (mayFollow(target)) {
            ++m_redirects;
            m_url = std::move(target);
            m_reply->disconnect(this);
            m_reply->deleteLater();
            send();
            return;
        }
        response.redirect = target.toString(QUrl::RemoveUserInfo | QUrl::FullyEncoded).toStdString();
        response.body = std::move(m_body);
    }
    if (status > 0) response.url = m_url.toString(QUrl::FullyEncoded).toStdString();
    for (const auto& [name, value] : m_reply->rawHeaderPairs()) {
        response.headers.emplace_back(name.toStdString(), value.toStdString());
    }
    finish(std::move(response));
}

void HttpExchange::finish(HttpResponse response) {
    m_reply->disconnect(this);
    m_reply->deleteLater();
    m_reply = nullptr;
    m_state->finish(std::move(response));
    m_finished(*this);
}

} // namespace ledgerfinch
