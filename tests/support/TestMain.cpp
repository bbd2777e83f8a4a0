// SPDX-License-Identifier: Apache-2.0
#include "platform/Platform.h"

#include <QCoreApplication>

#include <gtest/gtest.h>

namespace {

/// Qt warnings indicate mistakes in our code, so they fail the running test.
void failOnWarning(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if (type == QtWarningMsg || type == QtCriticalMsg) {
        ADD_FAILURE() << "Qt: " << message.toStdString();
    }
}

} // namespace

int main(int argc, char** argv) {
    // Protect the user's files from mistakes in tests. Not even root can create a folder here.
    constexpr auto nowhere = "/dev/null/nowhere";
    qputenv("HOME", nowhere);
    qputenv("XDG_CONFIG_HOME", nowhere);
    // Test servers run on this machine.
    qputenv("no_proxy", "*");
    testing::InitGoogleTest(&argc, argv);
    orvel::prepareEventLoop();
    const QCoreApplication application(argc, argv);
    qInstallMessageHandler(failOnWarning);
    return RUN_ALL_TESTS();
}
