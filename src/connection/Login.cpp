// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ApiHandler.h"

#include "connection/InstanceSwitch.h"
#include "connection/Instances.h"
#include "connection/LoginRecord.h"
#include "connection/SettingsChange.h"
#include "connection/Status.h"
#include "connection/TokenRequest.h"
#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Pages.h"
#include "platform/DispatchQueue.h"
#include "platform/Text.h"
#include "records/JsonReader.h"

#include <cassert>

namespace ledgerfinch {

namespace {

constexpr std::string_view kCheckPath = "/api/documents/?query=";

HttpRequest checkRequest(Services& services, const std::string& server, std::string_view token) {
    HttpRequest request;
    request.url = server + std::string(kCheckPath);
    ApiHandler::applyCustomHeaders(services, server, request.headers);
    setHeader(request.headers, "Authorization", "Token " + std::string(token));
    return request;
}

} // namespace

std::shared_ptr<ApiHandler> ApiHandler::inert(Services& services, CoreDataHandler& core) {
    return std::shared_ptr<ApiHandler>(new ApiHandler(services, core, {}));
}

std::shared_ptr<ApiHandler> ApiHandler::login(Services& services, CoreDataHandler& core, std::string_view server,
                                              std::string_view user, std::string_view password,
                                              Cancellation* cancellation, Activation activation, LoginRecord* record) {
    if (server.empty()) return inert(services, core);
    auto handler = std::shared_ptr<ApiHandler>(new ApiHandler(services, core, server));
    LoginRecord own(services, std::string(server), handler->m_server);
    auto& kept = record != nullptr ? *record : own;
    handler->m_log.info("Connecting to %{public}s", handler->m_server);
    handler->m_log.info("Obtaining token...");
    handler->obtainToken(user, password, kept, cancellation);
    handler->readCurrentUser(cancellation, !handler->failure());
    if (cancellation != nullptr && cancellation->isCancelled())
        handler->fail(ApiError::cancelled());
    else if (!handler->failure() && activation == Activation::Now)
        if (const auto failure = handler->activate(server)) handler->fail(*failure);
    if (handler->failure()) kept.undo();
    return handler;
}

std::optional<ApiError> ApiHandler::activate(std::string_view given) {
    SettingsChange settings(*m_services.defaults);
    settings.set("server", std::string(given));
    const auto connected = ConnectedInstances::load(*m_services.defaults);
    if (const auto* entry = connected.find(given)) settings.set("server_version", versionSetting(entry->second));
    if (settings.failure()) return ApiError::settingsUnwritable(settings.failure()->message);
    settings.keep();
    return std::nullopt;
}

void ApiHandler::fail(ApiError failure, std::string text) {
    const std::lock_guard lock(m_mutex);
    m_error = std::move(text);
    m_failure = std::move(failure);
    m_token.clear();
}

std::shared_ptr<ApiHandler> ApiHandler::withToken(Services& services, CoreDataHandler& core, std::string_view server,
                                                  std::string_view token, Cancellation* cancellation,
                                                  Activation activation, AskUser askUser) {
    auto handler = std::shared_ptr<ApiHandler>(new ApiHandler(services, core, server));
    handler->m_token = token;
    handler->m_error = "Success";
    if (activation == Activation::Now) {
        (void)services.defaults->set("server", server);
        (void)services.defaults->set("offlineMode", false);
    }
    handler->readCurrentUser(cancellation, askUser == AskUser::Yes);
    return handler;
}

ApiHandler::Restored ApiHandler::restore(Services& services, CoreDataHandler& core, std::string_view server,
                                         Activation activation, Cancellation* cancellation) {
    const auto reading = KeychainHandler(services).readToken(server);
    if (reading.state == SecretState::Unavailable) return SecretsUnavailable{reading.reason};
    if (!text::isValidUtf8(reading.data)) fatal("The stored token is damaged.");
    if (reading.data.empty() || server.empty()) return NoToken{};

    auto handler = std::shared_ptr<ApiHandler>(new ApiHandler(services, core, server));
    handler->m_token = reading.data;
    handler->m_error = "Success";
    const auto response = handler->send(checkRequest(services, handler->m_server, reading.data), cancellation);
    if (cancellation != nullptr && cancellation->isCancelled()) return Cancelled{};
    if (response.status == 401) return Refused{};
    if (activation == Activation::Now) (void)services.defaults->set("offlineMode", false);
    // Who didn't answer the first question isn't asked a second one.
    handler->readCurrentUser(cancellation, effectiveStatus(response) != status::kNoAnswer);
    return handler;
}

std::optional<ApiError> ApiHandler::checkToken(Services& services, std::string_view server, std::string_view token,
                                               Cancellation* cancellation) {
    return tryToken(services, server, token, cancellation).error;
}

ApiHandler::TokenCheck ApiHandler::tryToken(Services& services, std::string_view server, std::string_view token,
                                            Cancellation* cancellation) {
    const auto address = addresses::withoutSlash(server);
    if (!addresses::isValid(address)) return {ApiError::invalidURL()};
    if (!isPlausibleToken(token)) return {ApiError::invalidCredentials()};
    assert(!mainQueue::isCurrent());
    auto pending = services.http->start(checkRequest(services, address, token));
    const auto response = cancellation != nullptr ? cancellation->wait(std::move(pending)) : pending.wait();
    if (response.status == 401) return {ApiError::invalidCredentials(), true};
    const auto [outcome, reason] = response.status == 200 && !response.error && !JsonObject::parse(response.body)
                                       ? unreadable(response)
                                       : failureOf(response);
    return {std::nullopt, outcome != status::kNoAnswer && outcome != status::kCancelled, reason};
}

void ApiHandler::obtainToken(std::string_view user, std::string_view password, LoginRecord& record,
                             Cancellation* cancellation) {
    if (!addresses::isValid(m_server)) {
        fail(ApiError::invalidURL(), Error());
        return;
    }
    HttpRequest request = tokenRequest(m_server, user, password);
    HttpHeaders custom;
    applyCustomHeaders(m_services, m_server, custom);
    // What this request says about itself stands above the custom headers.
    for (const auto& [name, value] : request.headers)
        setHeader(custom, name, value);
    request.headers = std::move(custom);
    for (const auto& [name, value] : request.headers)
        m_log.debug("HEADERS: %{public}s: %s", name, value);

    const auto response = send(std::move(request), cancellation);
    if (response.error && response.body.empty()) {
        m_log.error("URLSession returned error: %{public}s\nTried connecting to: %s/api/token/",
                    response.error->description, m_server);
        fail(ApiError::couldntConnect(response.error->description), response.error->description);
        return;
    }
    if (response.status == 0 && !response.error) {
        m_log.error("URLSession encountered an unexpected error.");
        fail(ApiError::couldntConnect(), Error());
        return;
    }
    readTokenResponse(response, record, cancellation);
}

void ApiHandler::readTokenResponse(const HttpResponse& response, LoginRecord& record, Cancellation* cancellation) {
    const auto answer = readTokenAnswer(response.body);
    if (response.status != 200) {
        const auto text = "Server responded: " + std::to_string(response.status);
        fail(tokenFailure(response, answer), text);
    } else if (!answer.token) {
        fail(tokenFailure(response, answer), answer.isObject ? "Login Information incorrect!" : Error());
    } else {
        m_log.info("Received token from server, proceeding...");
        if (cancellation != nullptr && cancellation->isCancelled()) return;
        const auto version = header(response.headers, "x-version");
        if (const auto failure = record.keep(*answer.token, version && !version->empty() ? version : std::nullopt)) {
            fail(*failure);
            return;
        }
        m_log.info("saved token to keychain at %{public}s", m_server);
        const std::lock_guard lock(m_mutex);
        m_token = *answer.token;
        m_error = "Success";
    }
}

void ApiHandler::readCurrentUser(Cancellation* cancellation, bool mayAsk) {
    if (m_server.empty()) return;
    const auto stored = m_services.defaults->integer(m_server + "currentUserId");
    m_currentUserID = stored.value_or(0);
    // What the fetch stores reaches the handlers made after this one.
    if (m_currentUserID == 0 && mayAsk && !Token().empty()) (void)fetchUserSettings(*this, cancellation);
}

} // namespace ledgerfinch
