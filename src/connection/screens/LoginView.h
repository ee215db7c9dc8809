// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/screens/ConnectForm.h"

#include <memory>

namespace ledgerfinch {

/// The login to the first server. Main thread.
class LoginView final : public ConnectForm {
    Q_OBJECT
    Q_PROPERTY(bool loggedIn READ loggedIn NOTIFY loggedInChanged)

public:
    LoginView(Services& services, CoreDataHandler& core, QObject* parent = nullptr);

    [[nodiscard]] bool loggedIn() const { return m_loggedIn; }
    /// Of the last login; an inert one before. Its `Error()` is what the screen shows.
    [[nodiscard]] const std::shared_ptr<ApiHandler>& apiHandler() const { return m_apiHandler; }

    /// After success the server has an entry and its store is open before `loggedIn` turns true.
    Q_INVOKABLE void login();

signals:
    void apiHandlerChanged();
    void loggedInChanged();

private:
    void loginWithPassword(const std::string& address);
    void loginWithTypedToken(const std::string& address);
    /// False when it came to nothing.
    bool finishLogin(const std::string& address, std::shared_ptr<ApiHandler> handler, const std::string& doubt = {});

    std::shared_ptr<ApiHandler> m_apiHandler;
    bool m_loggedIn = false;
};

} // namespace ledgerfinch
