// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/IdleInhibitor.h"

#include "platform/DispatchQueue.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusUnixFileDescriptor>

#include <atomic>
#include <optional>

namespace ledgerfinch {

namespace {

constexpr int kAnswerTimeout = 1000;

/// systemd-logind, org.freedesktop.login1.Manager.Inhibit: the machine stays awake while the answered descriptor is
/// open.
std::optional<QDBusUnixFileDescriptor> takeLogindLock() {
    static std::atomic<unsigned> counter{0};
    const auto name = QStringLiteral("ledgerfinch-idle-%1").arg(counter++);
    std::optional<QDBusUnixFileDescriptor> result;
    {
        auto bus = QDBusConnection::connectToBus(QDBusConnection::SystemBus, name);
        if (bus.isConnected()) {
            auto call = QDBusMessage::createMethodCall(
                QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                QStringLiteral("org.freedesktop.login1.Manager"), QStringLiteral("Inhibit"));
            call << QStringLiteral("sleep:idle") << QStringLiteral("Ledgerfinch")
                 << QStringLiteral("A long operation is running") << QStringLiteral("block");
            const QDBusReply<QDBusUnixFileDescriptor> reply = bus.call(call, QDBus::Block, kAnswerTimeout);
            if (reply.isValid() && reply.value().isValid()) result = reply.value();
        }
    }
    QDBusConnection::disconnectFromBus(name);
    return result;
}

/// Counts its users; the bus is only spoken to on a thread of its own.
class LogindIdleInhibitor final : public IdleInhibitor {
public:
    void setIdleTimerDisabled(bool disabled) override {
        m_queue.async([this, disabled] {
            if (disabled) {
                ++m_users;
            } else if (m_users > 0) {
                --m_users;
            }
            if (m_users == 0) m_lock.reset();
            if (m_users > 0 && !m_lock) m_lock = takeLogindLock();
        });
    }

private:
    int m_users = 0;
    std::optional<QDBusUnixFileDescriptor> m_lock;
    DispatchQueue m_queue{"idle inhibitor"};
};

class NullIdleInhibitor final : public IdleInhibitor {
public:
    void setIdleTimerDisabled(bool /*disabled*/) override {}
};

} // namespace

std::unique_ptr<IdleInhibitor> makeIdleInhibitor() {
    return std::make_unique<LogindIdleInhibitor>();
}

std::unique_ptr<IdleInhibitor> makeNullIdleInhibitor() {
    return std::make_unique<NullIdleInhibitor>();
}

} // namespace ledgerfinch
