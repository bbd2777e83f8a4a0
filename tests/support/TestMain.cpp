// SPDX-License-Identifier: Apache-2.0
#include "platform/EventLoop.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

namespace {

/// A warning of Qt's is a mistake of ours: the running test fails.
void failOnWarning(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type == QtWarningMsg || type == QtCriticalMsg) {
        ADD_FAILURE() << "Qt: " << message.toStdString();
    }
}

} // namespace

int main(int argc, char** argv) {
    // Nothing of the user's may be read or written, even by mistake. Below a file not even root can
    // make a folder.
    constexpr auto nowhere = "/dev/null/nowhere";
    qputenv("HOME", nowhere);
    qputenv("XDG_CONFIG_HOME", nowhere);
    // Servers of tests are on this machine.
    qputenv("no_proxy", "*");
    testing::InitGoogleTest(&argc, argv);
    orvel::prepareEventLoop();
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(failOnWarning);
    return RUN_ALL_TESTS();
}
