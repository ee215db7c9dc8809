// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/screens/LoginView.h"

#include "connection/InstanceSwitch.h"

namespace ledgerfinch {

LoginView::LoginView(Services& services, CoreDataHandler& core, QObject* parent)
    : ConnectForm(services, core, parent), m_apiHandler(ApiHandler::inert(services, core)) {}

void LoginView::login() {
    if (isBusy()) return;
    const auto address = composedAddress(server());
    if (!addresses::isValid(address)) {
        setError(QStringLiteral("Server address is invalid!"));
        return;
    }
    // First of all, so that the first request carries them.
    (void)storeCustomHeaders(*services().defaults, address, customHeaders()->configuredHeaders());

    const bool withToken = loginWithToken();
    run([this, &machine = services(), &store = core(), withToken, address, typedToken = token().toStdString(),
         name = user().toStdString(), password = pass().toStdString()](Cancellation& cancellation) -> Effect {
        if (!withToken) {
            auto handler = ApiHandler::login(machine, store, address, name, password, &cancellation,
                                             ApiHandler::Activation::Later);
            return [this, address, handler] {
                finishLogin(address, handler);
            };
        }
        auto refused = ApiHandler::checkToken(machine, address, typedToken, &cancellation);
        if (!refused && !cancellation.isCancelled()) {
            // The entry first: a server without one would work in the store of offline mode.
            const auto registered = registerInstance(*machine.defaults, address);
            if (!registered)
                return [this, text = QString::fromStdString(registered.error().message)] {
                    setError(text);
                };
            const auto saved = KeychainHandler(machine).saveToken(typedToken, address);
            if (!saved) refused = ApiError::secretsUnavailable(saved.error().message);
        }
        if (refused || cancellation.isCancelled()) {
            const auto text = QString::fromStdString(refused ? refused->localizedDescription() : std::string());
            return [this, text] {
                setError(text);
            };
        }
        auto handler =
            ApiHandler::withToken(machine, store, address, typedToken, &cancellation, ApiHandler::Activation::Later);
        return [this, address, handler] {
            finishLogin(address, handler);
        };
    });
}

void LoginView::finishLogin(const std::string& address, std::shared_ptr<ApiHandler> handler) {
    m_apiHandler = std::move(handler);
    emit apiHandlerChanged();
    const auto outcome = m_apiHandler->Error();
    if (outcome == "Success") {
        const auto entered = enterConnectedStore(services(), core(), address);
        if (!entered) {
            setError(QString::fromStdString(entered.error().message));
            return;
        }
    }
    setError(QString::fromStdString(outcome));
    if (outcome != "Success") return;
    // Only now, with its store open: whoever is stopped before is not logged in at all.
    (void)services().defaults->set("server", address);
    (void)services().defaults->set("useiCloud", false);
    (void)services().defaults->set("offlineMode", false);
    m_loggedIn = true;
    emit loggedInChanged();
}

} // namespace ledgerfinch
