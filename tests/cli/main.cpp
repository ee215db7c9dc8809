// SPDX-License-Identifier: GPL-3.0-or-later
#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int count, char** words) {
    testing::InitGoogleTest(&count, words);
    const QCoreApplication application(count, words);
    return RUN_ALL_TESTS();
}
