// SPDX-License-Identifier: GPL-3.0-or-later
// The inhibitor against a stand-in for logind, on a private bus that passes for the system bus.
#include "platform/IdleInhibitor.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusUnixFileDescriptor>
#include <QObject>

#include <atomic>
#include <cstdlib>
#include <poll.h>
#include <semaphore>
#include <thread>
#include <unistd.h>

namespace {

/// Hands out the writing end of a pipe and keeps the other, which ends when the lock is let go.
class Logind : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.login1.Manager")

public:
    std::counting_semaphore<16> asked{0};
    std::atomic<int> locks{0};
    std::atomic<int> lockEnd{-1};
    QString what;

public slots:
    QDBusUnixFileDescriptor Inhibit(const QString& kinds, const QString&, const QString&, const QString& mode) {
        int ends[2];
        if (::pipe(ends) != 0) std::abort();
        what = kinds + QLatin1Char(' ') + mode;
        lockEnd = ends[0];
        ++locks;
        QDBusUnixFileDescriptor lock(ends[1]);
        ::close(ends[1]);
        asked.release();
        return lock;
    }
};

Logind* logind = nullptr;

/// Waits until nobody holds the lock any more.
bool isLetGo(int end) {
    pollfd waiting{end, 0, 0};
    return ::poll(&waiting, 1, 20'000) == 1 && (waiting.revents & POLLHUP) != 0;
}

bool isHeld(int end) {
    pollfd waiting{end, 0, 0};
    return ::poll(&waiting, 1, 0) == 0;
}

TEST(IdleInhibitorTest, HoldsOneLockForAllItsUsers) {
    const auto inhibitor = ledgerfinch::makeIdleInhibitor();
    inhibitor->setIdleTimerDisabled(false);
    inhibitor->setIdleTimerDisabled(true);
    logind->asked.acquire();
    EXPECT_EQ(QStringLiteral("sleep:idle block"), logind->what);
    const int end = logind->lockEnd;
    inhibitor->setIdleTimerDisabled(true);
    inhibitor->setIdleTimerDisabled(false);
    EXPECT_TRUE(isHeld(end));
    inhibitor->setIdleTimerDisabled(false);
    EXPECT_TRUE(isLetGo(end));
    EXPECT_EQ(1, logind->locks);
    {
        const auto dropped = ledgerfinch::makeIdleInhibitor();
        dropped->setIdleTimerDisabled(true);
        logind->asked.acquire();
    }
    EXPECT_TRUE(isLetGo(logind->lockEnd));
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", std::getenv("DBUS_SESSION_BUS_ADDRESS"), 1);
    QCoreApplication application(argc, argv);
    Logind service;
    logind = &service;
    auto bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(QStringLiteral("/org/freedesktop/login1"), &service, QDBusConnection::ExportAllSlots) ||
        !bus.registerService(QStringLiteral("org.freedesktop.login1"))) {
        return 1;
    }
    int result = 1;
    std::thread tests([&] {
        result = RUN_ALL_TESTS();
        QMetaObject::invokeMethod(&application, &QCoreApplication::quit, Qt::QueuedConnection);
    });
    QCoreApplication::exec();
    tests.join();
    return result;
}

#include "IdleInhibitorTest.moc"
