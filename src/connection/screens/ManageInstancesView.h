// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiError.h"
#include "platform/DispatchQueue.h"
#include "platform/Services.h"

#include <QObject>
#include <QStringList>

#include <optional>
#include <string>

namespace ledgerfinch {

class CoreDataHandler;

/// The connected servers, and how one is let go. Main thread.
class ManageInstancesView final : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString server READ server NOTIFY changed)
    Q_PROPERTY(QStringList connectedInstances READ connectedInstances NOTIFY changed)
    Q_PROPERTY(QString instanceToRemove READ instanceToRemove NOTIFY changed)
    Q_PROPERTY(bool showRemovalAlert READ showRemovalAlert NOTIFY changed)
    Q_PROPERTY(QString removalQuestion READ removalQuestion NOTIFY changed)
    Q_PROPERTY(bool showCurrentInstanceCantBeRemovedAlert READ showCurrentInstanceCantBeRemovedAlert NOTIFY changed)
    Q_PROPERTY(QString currentInstanceText READ currentInstanceText CONSTANT)
    Q_PROPERTY(QString error READ error NOTIFY changed)
    Q_PROPERTY(bool isRemoving READ isRemoving NOTIFY changed)

public:
    ManageInstancesView(Services& services, CoreDataHandler& core, QObject* parent = nullptr);

    [[nodiscard]] QString server() const;
    [[nodiscard]] QStringList connectedInstances() const;
    [[nodiscard]] QString instanceToRemove() const { return m_instanceToRemove; }
    [[nodiscard]] bool showRemovalAlert() const { return m_showRemovalAlert; }
    [[nodiscard]] QString removalQuestion() const;
    [[nodiscard]] bool showCurrentInstanceCantBeRemovedAlert() const { return m_showCurrentInstanceAlert; }
    [[nodiscard]] QString currentInstanceText() const;
    [[nodiscard]] bool isRemoving() const { return m_isRemoving; }
    /// Why the last removal did not come about, because of this device: the server's entry is still there then. Empty
    /// when there is no such trouble.
    [[nodiscard]] QString error() const;
    [[nodiscard]] const std::optional<ApiError>& failure() const { return m_failure; }

    /// A row's "Disconnect": asks.
    Q_INVOKABLE void askToDisconnect(const QString& address);
    /// The alert's "Disconnect": takes headers, token and entry away, then empties the server's store and its files,
    /// beside the main thread. The active server's store stays open all the while.
    Q_INVOKABLE void disconnectInstance();
    /// Closes either alert.
    Q_INVOKABLE void dismissAlert();
    /// The settings may have changed elsewhere.
    Q_INVOKABLE void reload();

signals:
    void changed();

private:
    struct Removal {
        bool isActive = false; ///< the alert about the active server is due
        std::optional<ApiError> failure = {};
    };
    Removal removeBesideMainThread(const std::string& address);
    void emptyStore(const std::string& store);

    Services& m_services;
    CoreDataHandler& m_core;
    QString m_instanceToRemove;
    bool m_showRemovalAlert = false;
    bool m_showCurrentInstanceAlert = false;
    bool m_isRemoving = false;
    std::optional<ApiError> m_failure;
    DispatchQueue m_queue{"instances"};
};

} // namespace ledgerfinch
