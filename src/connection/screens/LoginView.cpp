// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/LoginView.h"

#include "connection/InstanceSwitch.h"
#include "connection/LoginRecord.h"

namespace ledgerfinch {

LoginView::LoginView(Services& services, CoreDataHandler& core, QObject* parent)
    : ConnectForm(services, core, parent), m_apiHandler(ApiHandler::inert(services, core)) {}

void LoginView::login() {
    if (isBusy()) return;
    const auto address = composedAddress(server());
    if (!addresses::isValid(address)) {
        setFailure(ApiError::invalidURL(), "Server address is invalid!");
        return;
    }
    // First of all, so that the first request carries them.
    const auto stored = storeCustomHeaders(*services().defaults, address, customHeaders()->configuredHeaders());
    if (!stored) {
        setFailure(ApiError::settingsUnwritable(stored.error().message));
        return;
    }
    if (loginWithToken())
        loginWithTypedToken(address);
    else
        loginWithPassword(address);
}

void LoginView::loginWithPassword(const std::string& address) {
    run([this, &machine = services(), &store = core(), address, name = user().toStdString(),
         password = pass().toStdString()](Cancellation& cancellation) -> Outcome {
        const auto record = std::make_shared<LoginRecord>(machine, address, addresses::withoutSlash(address));
        auto handler = ApiHandler::login(machine, store, address, name, password, &cancellation,
                                         ApiHandler::Activation::Later, record.get());
        return {[this, address, handler] { return finishLogin(address, handler); },
                [record] {
                    record->undo();
                }};
    });
}

void LoginView::loginWithTypedToken(const std::string& address) {
    run([this, &machine = services(), &store = core(), address,
         typedToken = token().toStdString()](Cancellation& cancellation) -> Outcome {
        const auto record = std::make_shared<LoginRecord>(machine, address, address);
        const auto undo = [record] {
            record->undo();
        };
        auto [failure, answered, doubt] = ApiHandler::tryToken(machine, address, typedToken, &cancellation);
        if (!failure && !cancellation.isCancelled()) failure = record->keep(typedToken, std::nullopt);
        if (failure || cancellation.isCancelled()) {
            return {[this, failure = failure.value_or(ApiError::cancelled())] {
                        setFailure(failure);
                        return false;
                    },
                    undo};
        }
        auto handler =
            ApiHandler::withToken(machine, store, address, typedToken, &cancellation, ApiHandler::Activation::Later,
                                  answered ? ApiHandler::AskUser::Yes : ApiHandler::AskUser::No);
        return {[this, address, handler, doubt = doubt] { return finishLogin(address, handler, doubt); }, undo};
    });
}

bool LoginView::finishLogin(const std::string& address, std::shared_ptr<ApiHandler> handler, const std::string& doubt) {
    m_apiHandler = std::move(handler);
    emit apiHandlerChanged();
    if (const auto failure = m_apiHandler->failure()) {
        setFailure(*failure, m_apiHandler->Error());
        return false;
    }
    if (const auto failure = enterConnectedStore(services(), core(), address)) {
        setFailure(*failure);
        return false;
    }
    setError(QString::fromStdString(m_apiHandler->Error()));
    if (!doubt.empty()) setDoubt(doubt);
    m_loggedIn = true;
    emit loggedInChanged();
    return true;
}

} // namespace ledgerfinch
