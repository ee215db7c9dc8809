// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/screens/ConnectForm.h"

namespace ledgerfinch {

/// Connects a further server, without touching the active one. Main thread.
class AddInstanceView final : public ConnectForm {
    Q_OBJECT
    Q_PROPERTY(QString notice READ notice CONSTANT)
    Q_PROPERTY(QString successText READ successText CONSTANT)
    Q_PROPERTY(bool showSuccess READ showSuccess WRITE setShowSuccess NOTIFY showSuccessChanged)

public:
    AddInstanceView(Services& services, CoreDataHandler& core, QObject* parent = nullptr);

    [[nodiscard]] QString notice() const;
    [[nodiscard]] QString successText() const;
    [[nodiscard]] bool showSuccess() const { return m_showSuccess; }
    void setShowSuccess(bool show);

    Q_INVOKABLE void connectToServer();

signals:
    void showSuccessChanged();
    /// The setting "connectedInstances" has a new entry.
    void instanceAdded(const QString& address);

private:
    void finishConnecting(const std::string& address, const std::string& doubt);

    bool m_showSuccess = false;
};

} // namespace ledgerfinch
