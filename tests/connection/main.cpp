// SPDX-License-Identifier: GPL-3.0-or-later
// Tests run beside the main thread, which has its event loop as in the program: so a call that would block the window
// fails here, and what belongs to the main thread runs there.
#include <QCoreApplication>
#include <gtest/gtest.h>

#include <thread>

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    QCoreApplication application(argc, argv);
    int result = 1;
    std::thread tests([&] {
        result = RUN_ALL_TESTS();
        QMetaObject::invokeMethod(&application, &QCoreApplication::quit, Qt::QueuedConnection);
    });
    QCoreApplication::exec();
    tests.join();
    return result;
}
