// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/screens/CustomHeadersView.h"
#include "platform/DispatchQueue.h"

#include <QObject>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace ledgerfinch {

/// What the two login screens share: the inputs, and work beside the main thread that can be cancelled. Main thread.
class ConnectForm : public QObject {
    Q_OBJECT
    Q_PROPERTY(QStringList protocols READ protocols CONSTANT)
    Q_PROPERTY(QString connectionProtocol READ connectionProtocol WRITE setConnectionProtocol NOTIFY inputChanged)
    Q_PROPERTY(QString server READ server WRITE setServer NOTIFY inputChanged)
    Q_PROPERTY(QString serverHint READ serverHint CONSTANT)
    Q_PROPERTY(QString user READ user WRITE setUser NOTIFY inputChanged)
    Q_PROPERTY(QString pass READ pass WRITE setPass NOTIFY inputChanged)
    Q_PROPERTY(bool loginWithToken READ loginWithToken WRITE setLoginWithToken NOTIFY inputChanged)
    Q_PROPERTY(QString token READ token WRITE setToken NOTIFY inputChanged)
    Q_PROPERTY(QString switchLoginText READ switchLoginText NOTIFY inputChanged)
    Q_PROPERTY(QString customHeadersText READ customHeadersText NOTIFY inputChanged)
    Q_PROPERTY(ledgerfinch::CustomHeadersView* customHeaders READ customHeaders CONSTANT)
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    Q_PROPERTY(QString reason READ reason NOTIFY errorChanged)
    Q_PROPERTY(bool isBusy READ isBusy NOTIFY isBusyChanged)

public:
    ~ConnectForm() override;

    [[nodiscard]] QStringList protocols() const;
    [[nodiscard]] QString connectionProtocol() const { return m_connectionProtocol; }
    void setConnectionProtocol(const QString& text) { change(m_connectionProtocol, text); }
    [[nodiscard]] QString server() const { return m_server; }
    void setServer(const QString& text) { change(m_server, text); }
    [[nodiscard]] QString serverHint() const { return QStringLiteral("your.server:8080"); }
    [[nodiscard]] QString user() const { return m_user; }
    void setUser(const QString& text) { change(m_user, text); }
    [[nodiscard]] QString pass() const { return m_pass; }
    void setPass(const QString& text) { change(m_pass, text); }
    [[nodiscard]] bool loginWithToken() const { return m_loginWithToken; }
    void setLoginWithToken(bool withToken);
    [[nodiscard]] QString token() const { return m_token; }
    void setToken(const QString& text) { change(m_token, text); }
    /// "Log in with token" or "Log in with username": the other way.
    [[nodiscard]] QString switchLoginText() const;
    /// "Add custom headers", or "Edit custom headers" when there are some.
    [[nodiscard]] QString customHeadersText() const;
    [[nodiscard]] CustomHeadersView* customHeaders() { return &m_customHeaders; }
    /// Empty when there is none.
    [[nodiscard]] QString error() const { return m_error; }
    /// The same in one or two sentences that say what to do, without the server's own words. After a success: what
    /// leaves a typed token in doubt. Empty when there is neither.
    [[nodiscard]] QString reason() const;
    /// The same for whoever tells the cases apart.
    [[nodiscard]] const std::optional<ApiError>& failure() const { return m_failure; }
    [[nodiscard]] bool isBusy() const { return m_attempt != nullptr; }

    /// Ends what is under way; nothing that it would have changed changes any more, and what it has kept already is
    /// taken back.
    Q_INVOKABLE void cancel();

signals:
    void inputChanged();
    void errorChanged();
    void isBusyChanged();

protected:
    ConnectForm(Services& services, CoreDataHandler& core, QObject* parent);

    void setError(const QString& text);
    void setFailure(const ApiError& failure, const std::string& text);
    void setFailure(const ApiError& failure) { setFailure(failure, failure.localizedDescription()); }
    void setDoubt(const std::string& text);
    /// Protocol and server text. A pasted address that brings its own protocol counts as it is.
    [[nodiscard]] std::string composedAddress(const QString& server) const;
    [[nodiscard]] Services& services() const { return m_services; }
    [[nodiscard]] CoreDataHandler& core() const { return m_core; }

    /// On the main thread, unless it was cancelled meanwhile. False: it came to nothing in the end.
    using Effect = std::function<bool()>;
    struct Outcome {
        Effect effect;
        /// Beside the main thread, when the effect came to nothing or to no run. May outlive the form; may be empty.
        std::function<void()> undo = {};
    };
    /// Runs `work` beside the main thread, then what it returned.
    void run(std::function<Outcome(Cancellation&)> work);

private:
    class Attempt;

    void change(QString& field, const QString& text);
    void finish(const std::shared_ptr<Attempt>& attempt, const Effect& effect);

    Services& m_services;
    CoreDataHandler& m_core;
    QString m_connectionProtocol = QStringLiteral("https://");
    QString m_server;
    QString m_user;
    QString m_pass;
    QString m_token;
    bool m_loginWithToken = false;
    QString m_error;
    std::optional<ApiError> m_failure;
    QString m_doubt;
    CustomHeadersView m_customHeaders;
    std::shared_ptr<Attempt> m_attempt;   ///< what is under way
    std::shared_ptr<Attempt> m_finishing; ///< whose effect runs now
    DispatchQueue m_queue{"connect"};
};

} // namespace ledgerfinch
