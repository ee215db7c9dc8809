// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ApiHandler.h"

#include "connection/CustomHeaders.h"
#include "connection/Instances.h"
#include "connection/SameServer.h"
#include "connection/Status.h"
#include "platform/DispatchQueue.h"
#include "records/Decoders.h"

#include <cassert>

namespace ledgerfinch {

ApiHandler::ApiHandler(Services& services, CoreDataHandler& core, std::string_view server)
    : m_services(services), m_core(core), m_server(addresses::withoutSlash(server)),
      m_log(services.logger("ApiHandler")) {}

std::string ApiHandler::Token() const {
    const std::lock_guard lock(m_mutex);
    return m_token;
}

std::string ApiHandler::Error() const {
    const std::lock_guard lock(m_mutex);
    return m_error.value_or("Couldn't connect to server");
}

std::optional<ApiError> ApiHandler::failure() const {
    const std::lock_guard lock(m_mutex);
    return m_failure;
}

void ApiHandler::applyCustomHeaders(Services& services, std::string_view server, HttpHeaders& headers) {
    const auto all = AllCustomHeaders::load(*services.defaults);
    const auto* custom = all.find(server);
    if (custom != nullptr) ledgerfinch::applyCustomHeaders(*custom, headers, services.logger("ApiHandler"));
}

HttpRequest ApiHandler::request(std::string_view method, std::string_view path, Accept accept) const {
    return requestTo(method, m_server + std::string(path), accept);
}

HttpRequest ApiHandler::requestTo(std::string_view method, std::string url, Accept accept) const {
    HttpRequest request;
    request.method = method;
    request.url = std::move(url);
    const bool ours = leadsToServer(request.url, m_server);
    assert(ours);
    if (!ours) return request;
    applyCustomHeaders(m_services, m_server, request.headers);
    setHeader(request.headers, "Authorization", "Token " + Token());
    if (accept == Accept::Yes) setHeader(request.headers, "Accept", m_dialect.acceptHeader());
    return request;
}

void ApiHandler::setJsonBody(HttpRequest& request, std::string body) {
    setHeader(request.headers, "Content-Type", "application/json");
    request.body = std::move(body);
}

PendingResponse ApiHandler::start(HttpRequest request) const {
    return m_services.http->start(std::move(request));
}

HttpResponse ApiHandler::finish(PendingResponse pending, Cancellation* cancellation) {
    assert(!mainQueue::isCurrent());
    auto response = cancellation != nullptr ? cancellation->wait(std::move(pending)) : pending.wait();
    m_dialect.hear(response);
    if (auto failure = failureOf(response); !failure.reason.empty()) noteFailure(failure);
    return response;
}

int ApiHandler::noteFailure(const AnswerFailure& failure) {
    bool isNew = false;
    {
        const std::lock_guard lock(m_mutex);
        auto& known = m_reasons[failure.status];
        isNew = known != failure.reason;
        known = failure.reason;
    }
    // Those for which the status alone tells nothing, once each.
    const bool unclear = failure.status == status::kRedirected || failure.status == status::kNeedsHttps ||
                         failure.status == status::kWebPage;
    if (isNew && unclear) m_log.error("%{public}s", failure.reason);
    return failure.status;
}

int ApiHandler::noteUnreadable(const HttpResponse& response) {
    return noteFailure(unreadable(response));
}

std::string ApiHandler::reasonFor(int status) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_reasons.find(status);
    return found != m_reasons.end() ? found->second : status::reasonFor(status);
}

DecodeContext ApiHandler::decodeContext() const {
    return {&m_log, m_server};
}

void ApiHandler::eraseToken() {
    std::string refused;
    {
        const std::lock_guard lock(m_mutex);
        refused.swap(m_token);
        m_tokenRefused = true;
    }
    // A newer token, from a login in the meantime, stays.
    if (!refused.empty()) KeychainHandler(m_services).removeToken(m_server, refused);
}

bool ApiHandler::isTokenRefused() const {
    const std::lock_guard lock(m_mutex);
    return m_tokenRefused;
}

void ApiHandler::storeServerVersion(const HttpResponse& response) {
    // A walk may still run when the person has switched.
    const auto active = m_services.defaults->string("server").value_or("");
    if (!addresses::same(active, m_server)) return;
    const auto version = header(response.headers, "x-version");
    if (version && !version->empty()) (void)m_services.defaults->set("server_version", *version);
}

} // namespace ledgerfinch
