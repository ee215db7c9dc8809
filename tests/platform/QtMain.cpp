// SPDX-License-Identifier: GPL-3.0-or-later
// The main function of tests that block on the network or on queues: the tests run on a thread of their own, while the
// main thread has an event loop, as in the program.
#include <QCoreApplication>
#include <gtest/gtest.h>

#include <thread>

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
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
