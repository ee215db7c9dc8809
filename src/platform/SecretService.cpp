// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/SecretService.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QDBusVariant>
#include <QMap>

#include <atomic>
#include <optional>

namespace ledgerfinch::secretService {

namespace {

constexpr int kAnswerTimeout = 5000;

QString text(std::string_view value) {
    return QString::fromUtf8(value.data(), static_cast<qsizetype>(value.size()));
}

/// A connection to the session bus of its own, closed at the end.
class SessionBus {
public:
    SessionBus()
        : m_name(QStringLiteral("ledgerfinch-secrets-%1").arg(counter()++)),
          m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus, m_name)) {}
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;
    ~SessionBus() { QDBusConnection::disconnectFromBus(m_name); }

    [[nodiscard]] bool isConnected() const { return m_bus.isConnected(); }

    /// Absent on any error.
    [[nodiscard]] std::optional<QVariantList> call(const QString& service, const QString& path,
                                                   const QString& interface, const QString& method,
                                                   const QVariantList& arguments) const {
        auto message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(arguments);
        const auto reply = m_bus.call(message, QDBus::Block, kAnswerTimeout);
        if (reply.type() != QDBusMessage::ReplyMessage) return std::nullopt;
        return reply.arguments();
    }

    [[nodiscard]] std::optional<QVariantList> callBus(const QString& method, const QVariantList& arguments) const {
        return call(QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                    QStringLiteral("org.freedesktop.DBus"), method, arguments);
    }

    [[nodiscard]] std::optional<QVariantList> callSecrets(const QString& path, const QString& interface,
                                                          const QString& method, const QVariantList& arguments) const {
        return call(QStringLiteral("org.freedesktop.secrets"), path, interface, method, arguments);
    }

private:
    static std::atomic<unsigned>& counter() {
        static std::atomic<unsigned> instance{0};
        return instance;
    }

    QString m_name;
    QDBusConnection m_bus;
};

const QString kServicePath = QStringLiteral("/org/freedesktop/secrets");
const QString kServiceInterface = QStringLiteral("org.freedesktop.Secret.Service");

std::optional<bool> isLocked(const SessionBus& bus, const QString& collection) {
    const auto reply =
        bus.callSecrets(collection, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                        {QStringLiteral("org.freedesktop.Secret.Collection"), QStringLiteral("Locked")});
    if (!reply || reply->isEmpty()) return std::nullopt;
    return reply->first().value<QDBusVariant>().variant().toBool();
}

/// SearchItems answers with the paths of the unlocked and of the locked matches.
std::optional<bool> hasLockedMatch(const SessionBus& bus, std::string_view service, std::string_view account) {
    const QMap<QString, QString> attributes{{QStringLiteral("server"), text(service)},
                                            {QStringLiteral("user"), text(account)}};
    const auto reply = bus.callSecrets(kServicePath, kServiceInterface, QStringLiteral("SearchItems"),
                                       {QVariant::fromValue(attributes)});
    if (!reply || reply->size() < 2) return std::nullopt;
    return !qdbus_cast<QList<QDBusObjectPath>>(reply->at(1)).isEmpty();
}

} // namespace

bool isReachable() {
    const SessionBus bus;
    if (!bus.isConnected()) return false;
    const auto name = QStringLiteral("org.freedesktop.secrets");
    const auto owned = bus.callBus(QStringLiteral("NameHasOwner"), {name});
    if (owned && !owned->isEmpty() && owned->first().toBool()) return true;
    const auto activatable = bus.callBus(QStringLiteral("ListActivatableNames"), {});
    return activatable && !activatable->isEmpty() && activatable->first().toStringList().contains(name);
}

std::string currentOwner() {
    const SessionBus bus;
    if (!bus.isConnected()) return {};
    const auto owner = bus.callBus(QStringLiteral("GetNameOwner"), {QStringLiteral("org.freedesktop.secrets")});
    return owner && !owner->isEmpty() ? owner->first().toString().toStdString() : std::string();
}

LockState lockState(std::string_view service, std::string_view account) {
    qDBusRegisterMetaType<QMap<QString, QString>>();
    const SessionBus bus;
    if (!bus.isConnected()) return LockState::NoAnswer;
    const auto lockedMatch = hasLockedMatch(bus, service, account);
    if (!lockedMatch) return LockState::NoAnswer;
    if (*lockedMatch) return LockState::Locked;

    const auto alias =
        bus.callSecrets(kServicePath, kServiceInterface, QStringLiteral("ReadAlias"), {QStringLiteral("default")});
    if (!alias || alias->isEmpty()) return LockState::NoAnswer;
    const auto collection = alias->first().value<QDBusObjectPath>().path();
    // Without a default collection nothing was ever kept.
    if (collection.isEmpty() || collection == QStringLiteral("/")) return LockState::Unlocked;
    const auto locked = isLocked(bus, collection);
    if (!locked) return LockState::NoAnswer;
    return *locked ? LockState::Locked : LockState::Unlocked;
}

} // namespace ledgerfinch::secretService
