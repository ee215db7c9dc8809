// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/AnswerFailure.h"
#include "connection/ApiError.h"
#include "connection/Cancellation.h"
#include "connection/KeychainHandler.h"
#include "connection/ServerDialect.h"
#include "platform/Services.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace ledgerfinch {

class CoreDataHandler;
class LoginRecord;
struct DecodeContext;

/// One connection to one server: what every request shares. The operations are the free functions under endpoints/.
///
/// Every call that talks to the server blocks its thread until the answer is in, at most as long as nothing moves for
/// 60 seconds; never call one on the main thread (asserted in debug builds). A handler may be shared by any number of
/// threads. It never changes its server.
class ApiHandler {
public:
    /// A placeholder without a server: touches neither network nor secrets nor settings.
    static std::shared_ptr<ApiHandler> inert(Services& services, CoreDataHandler& core);

    /// Whether a handler's server becomes the active one at once, or later by the caller.
    enum class Activation { Now, Later };

    /// Asks the server for a token and keeps it. `Error()` tells the outcome: "Success", or the text for the person.
    /// With an empty server, an inert handler. On success the server has an entry with a store of its own before the
    /// token is kept, and then, unless that is for later, "server" is set to the text as given. A login that failed or
    /// was cancelled changes nothing; with a record, the caller can take a successful one back as well.
    static std::shared_ptr<ApiHandler> login(Services& services, CoreDataHandler& core, std::string_view server,
                                             std::string_view user, std::string_view password,
                                             Cancellation* cancellation = nullptr,
                                             Activation activation = Activation::Now, LoginRecord* record = nullptr);

    /// Whether an unknown user is asked for when a handler is made.
    enum class AskUser { No, Yes };

    /// Trusts the token. Unless that is for later, sets "server" to the text as given and "offlineMode" to false.
    static std::shared_ptr<ApiHandler> withToken(Services& services, CoreDataHandler& core, std::string_view server,
                                                 std::string_view token, Cancellation* cancellation = nullptr,
                                                 Activation activation = Activation::Now,
                                                 AskUser askUser = AskUser::Yes);

    struct NoToken {};
    struct SecretsUnavailable {
        std::string reason;
    };
    /// The server answered 401.
    struct Refused {};
    /// The caller didn't wait for the answer; nothing was changed.
    struct Cancelled {};
    using Restored = std::variant<std::shared_ptr<ApiHandler>, NoToken, SecretsUnavailable, Refused, Cancelled>;
    /// With the token kept for the server, tried against it once. A server that doesn't answer, or answers anything but
    /// 401, gives a handler, so that the local data can be worked with. Leaves "server" alone; when there is a handler
    /// sets "offlineMode" to false, unless that is for later.
    static Restored restore(Services& services, CoreDataHandler& core, std::string_view server,
                            Activation activation = Activation::Now, Cancellation* cancellation = nullptr);

    /// Tries a token that a person typed; absent when it may be used (any outcome but a broken address or 401).
    static std::optional<ApiError> checkToken(Services& services, std::string_view server, std::string_view token,
                                              Cancellation* cancellation = nullptr);
    struct TokenCheck {
        std::optional<ApiError> error; ///< as checkToken() gives it
        bool answered = false;
        std::string doubt = {}; ///< a sentence when the token may be used, but the server didn't confirm it
    };
    /// The same, and whether anybody answered: who didn't isn't asked a second question.
    static TokenCheck tryToken(Services& services, std::string_view server, std::string_view token,
                               Cancellation* cancellation = nullptr);
    /// Sets the custom headers of that server among the headers of a request.
    static void applyCustomHeaders(Services& services, std::string_view server, HttpHeaders& headers);

    ApiHandler(const ApiHandler&) = delete;
    ApiHandler& operator=(const ApiHandler&) = delete;

    /// Without a slash at the end; empty for an inert handler.
    [[nodiscard]] const std::string& Server() const { return m_server; }
    /// "" when there is none (any more).
    [[nodiscard]] std::string Token() const;
    /// The result of the login; "Success" or why not.
    [[nodiscard]] std::string Error() const;
    /// Why the login failed, for whoever has to tell the cases apart; absent after success.
    [[nodiscard]] std::optional<ApiError> failure() const;
    /// The server's id of the token's user, as it was known when the handler was made.
    [[nodiscard]] std::optional<std::int64_t> currentUserID() const { return m_currentUserID; }
    [[nodiscard]] bool isInert() const { return m_server.empty(); }

    // What the operations are made of.

    enum class Accept { No, Yes };
    /// A request to `path` of this server with the custom headers, "Authorization" and, where asked for, "Accept".
    [[nodiscard]] HttpRequest request(std::string_view method, std::string_view path, Accept accept) const;
    /// The same for a whole address. Only for addresses of this server: elsewhere the token would leak (asserted; such
    /// a request is made without it).
    [[nodiscard]] HttpRequest requestTo(std::string_view method, std::string url, Accept accept) const;
    /// Adds a JSON body.
    static void setJsonBody(HttpRequest& request, std::string body);
    [[nodiscard]] PendingResponse start(HttpRequest request) const;
    /// Waits for the answer.
    [[nodiscard]] HttpResponse finish(PendingResponse pending, Cancellation* cancellation = nullptr);
    [[nodiscard]] HttpResponse send(HttpRequest request, Cancellation* cancellation = nullptr) {
        return finish(start(std::move(request)), cancellation);
    }

    /// What the decoders need. Holds for as long as the handler.
    [[nodiscard]] DecodeContext decodeContext() const;
    /// Forgets a token that the server refused, here and in the secret store (only where that very token lies).
    void eraseToken();
    /// The token was refused and forgotten. Where the secret store is locked it may still lie there.
    [[nodiscard]] bool isTokenRefused() const;
    /// A sentence for the person about the status that an operation of this handler gave: what its latest failure with
    /// that status told (why nobody answered, where a redirect leads), else status::reasonFor().
    [[nodiscard]] std::string reasonFor(int status) const;
    /// Remembers why a body that came with success is of no use, and gives its status.
    int noteUnreadable(const HttpResponse& response);
    /// Keeps "x-version" of an answer under "server_version", if it has one and this handler's server is the active
    /// one.
    void storeServerVersion(const HttpResponse& response);

    [[nodiscard]] Services& services() const { return m_services; }
    [[nodiscard]] CoreDataHandler& core() const { return m_core; }
    [[nodiscard]] ServerDialect& dialect() { return m_dialect; }
    [[nodiscard]] const Logger& log() const { return m_log; }

private:
    ApiHandler(Services& services, CoreDataHandler& core, std::string_view server);
    void obtainToken(std::string_view user, std::string_view password, LoginRecord& record, Cancellation* cancellation);
    void readTokenResponse(const HttpResponse& response, LoginRecord& record, Cancellation* cancellation);
    /// Makes the given address the active server.
    std::optional<ApiError> activate(std::string_view given);
    void fail(ApiError failure, std::string text);
    void fail(const ApiError& failure) { fail(failure, failure.localizedDescription()); }
    int noteFailure(const AnswerFailure& failure);
    void readCurrentUser(Cancellation* cancellation, bool mayAsk = true);

    Services& m_services;
    CoreDataHandler& m_core;
    const std::string m_server;
    Logger m_log;
    ServerDialect m_dialect;
    std::optional<std::int64_t> m_currentUserID;
    mutable std::mutex m_mutex;
    std::string m_token;
    bool m_tokenRefused = false;
    std::optional<std::string> m_error;
    std::optional<ApiError> m_failure;
    std::map<int, std::string> m_reasons; ///< by status
};

} // namespace ledgerfinch
