// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/AddInstanceView.h"

#include "connection/AnswerFailure.h"
#include "connection/Instances.h"
#include "connection/LoginRecord.h"
#include "connection/TokenRequest.h"
#include "platform/Text.h"

#include <utility>

namespace ledgerfinch {

namespace {

struct Obtained {
    std::string token;
    std::optional<ApiError> error;
    std::string doubt = {};
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
    if (response.error || response.status == 0) {
        const auto failure = failureOf(response);
        return {{}, ApiError::couldntConnect(failure.reason)};
    }
    auto answer = readTokenAnswer(response.body);
    const bool success = response.status >= 200 && response.status < 300;
    if (success && answer.token) return {std::move(*answer.token), std::nullopt};
    if (!success && answer.namesNonFieldErrors) return {{}, ApiError::invalidCredentials()};
    // What should be a token isn't for the screen.
    const bool showable = !(success && answer.namesToken) && text::isValidUtf8(response.body);
    return {{},
            ApiError::unexpectedResponse(response.status, showable ? response.body : std::string(),
                                         tokenFailure(response, answer).reason())};
}

Obtained checkedToken(Services& services, const std::string& address, const std::string& token,
                      Cancellation& cancellation) {
    auto check = ApiHandler::tryToken(services, address, token, &cancellation);
    return {token, std::move(check.error), std::move(check.doubt)};
}

/// A new server's entry, token and headers, until it is sure that they stay.
class KeptInstance {
public:
    KeptInstance(Services& services, const std::string& address)
        : m_services(services), m_address(address), m_record(services, address, address) {}

    std::optional<ApiError> keep(const std::string& token, const CustomHeaders& headers) {
        if (auto failure = m_record.keep(token, std::nullopt)) return failure;
        const auto all = AllCustomHeaders::load(*m_services.defaults);
        const auto* earlier = all.find(m_address);
        m_earlier = earlier != nullptr ? std::optional(*earlier) : std::nullopt;
        m_headersStored = true;
        const auto stored = storeCustomHeaders(*m_services.defaults, m_address, headers);
        if (stored) return std::nullopt;
        undo();
        return ApiError::settingsUnwritable(stored.error().message);
    }
    void undo() {
        m_record.undo();
        if (!std::exchange(m_headersStored, false)) return;
        (void)(m_earlier ? storeCustomHeaders(*m_services.defaults, m_address, *m_earlier)
                         : removeCustomHeaders(*m_services.defaults, m_address));
    }

private:
    Services& m_services;
    std::string m_address;
    LoginRecord m_record;
    std::optional<CustomHeaders> m_earlier;
    bool m_headersStored = false;
};

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
         headers = customHeaders()->configuredHeaders()](Cancellation& cancellation) -> Outcome {
        auto obtained = withToken ? checkedToken(machine, address, typedToken, cancellation)
                                  : obtainToken(machine, address, name, password, headers, cancellation);
        const auto kept = std::make_shared<KeptInstance>(machine, address);
        if (!obtained.error && !cancellation.isCancelled()) obtained.error = kept->keep(obtained.token, headers);
        return {[this, address, failure = obtained.error, doubt = obtained.doubt] {
                    if (failure)
                        setFailure(*failure);
                    else
                        finishConnecting(address, doubt);
                    return !failure;
                },
                [kept] {
                    kept->undo();
                }};
    });
}

void AddInstanceView::finishConnecting(const std::string& address, const std::string& doubt) {
    setError({});
    if (!doubt.empty()) setDoubt(doubt);
    setShowSuccess(true);
    emit instanceAdded(QString::fromStdString(address));
}

} // namespace ledgerfinch
