// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/AddInstanceView.h"

#include "connection/Instances.h"
#include "connection/TokenRequest.h"
#include "platform/Text.h"

namespace ledgerfinch {

namespace {

struct Obtained {
    std::string token;
    std::optional<ApiError> error;
};

/// Custom headers are added to this one request, each beside an earlier one of its name; what the request says about
/// itself replaces them.
HttpHeaders withCustomHeaders(const CustomHeaders& custom, const HttpHeaders& own, const Logger& log) {
    HttpHeaders headers;
    for (const auto& entry : custom.headers) {
        HttpHeaders one;
        applyCustomHeaders({{entry}}, one, log);
        if (one.empty()) continue;
        const auto earlier = header(headers, one[0].first);
        setHeader(headers, one[0].first, earlier ? *earlier + "," + one[0].second : one[0].second);
    }
    for (const auto& [name, value] : own)
        setHeader(headers, name, value);
    return headers;
}

Obtained obtainToken(Services& services, const std::string& address, const std::string& user,
                     const std::string& password, const CustomHeaders& custom, Cancellation& cancellation) {
    if (!addresses::isValid(address)) return {{}, ApiError::invalidURL()};
    auto request = tokenRequest(address, user, password);
    request.headers = withCustomHeaders(custom, request.headers, services.logger("AddInstanceView"));
    const auto response = cancellation.wait(services.http->start(std::move(request)));
    if (response.error || response.status == 0) return {{}, ApiError::couldntConnect()};
    auto answer = readTokenAnswer(response.body);
    const bool success = response.status >= 200 && response.status < 300;
    if (success && answer.token) return {std::move(*answer.token), std::nullopt};
    if (!success && answer.namesNonFieldErrors) return {{}, ApiError::invalidCredentials()};
    // What should be a token isn't for the screen.
    if (success && answer.namesToken) return {{}, ApiError::unexpectedResponse(response.status, {})};
    return {{},
            ApiError::unexpectedResponse(response.status,
                                         text::isValidUtf8(response.body) ? response.body : std::string())};
}

Obtained checkedToken(Services& services, const std::string& address, const std::string& token,
                      Cancellation& cancellation) {
    return {token, ApiHandler::checkToken(services, address, token, &cancellation)};
}

} // namespace

AddInstanceView::AddInstanceView(Services& services, CoreDataHandler& core, QObject* parent)
    : ConnectForm(services, core, parent) {}

QString AddInstanceView::notice() const {
    return QStringLiteral("Multi-Instance support is an experimental feature.");
}

QString AddInstanceView::successText() const {
    return QStringLiteral("Instance added! You can now select it using the button in the top right of the documents "
                          "list.");
}

void AddInstanceView::setShowSuccess(bool show) {
    if (m_showSuccess == show) return;
    m_showSuccess = show;
    emit showSuccessChanged();
}

void AddInstanceView::connectToServer() {
    if (isBusy()) return;
    const auto address = composedAddress(QString::fromStdString(addresses::withoutSlash(server().toStdString())));
    run([this, &machine = services(), address, withToken = loginWithToken(), typedToken = token().toStdString(),
         name = user().toStdString(), password = pass().toStdString(),
         headers = customHeaders()->configuredHeaders()](Cancellation& cancellation) -> Effect {
        auto obtained = withToken ? checkedToken(machine, address, typedToken, cancellation)
                                  : obtainToken(machine, address, name, password, headers, cancellation);
        if (cancellation.isCancelled())
            return [] {
            };
        if (!obtained.error) {
            const auto saved = KeychainHandler(machine).saveToken(obtained.token, address);
            if (!saved) obtained.error = ApiError::secretsUnavailable(saved.error().message);
        }
        if (obtained.error) {
            const auto text = QString::fromStdString(obtained.error->localizedDescription());
            return [this, text] {
                setError(text);
            };
        }
        return [this, address, headers] {
            finishConnecting(address, headers);
        };
    });
}

void AddInstanceView::finishConnecting(const std::string& address, const CustomHeaders& headers) {
    setError({});
    const auto registered = registerInstance(*services().defaults, address);
    if (!registered) {
        setError(QString::fromStdString(registered.error().message));
        return;
    }
    (void)storeCustomHeaders(*services().defaults, address, headers);
    setShowSuccess(true);
    emit instanceAdded(QString::fromStdString(address));
}

} // namespace ledgerfinch
