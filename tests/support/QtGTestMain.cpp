// SPDX-License-Identifier: MIT
// main() for GoogleTest suites that need a Qt event loop: the application
// object exists for the whole run, tests spin local loops as they need.
#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
