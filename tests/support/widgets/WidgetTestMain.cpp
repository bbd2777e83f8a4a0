// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/Accessibility.h"

#include <QApplication>
#include <QDir>
#include <QFont>
#include <QFontDatabase>
#include <QStyleFactory>

#include <gtest/gtest.h>

namespace {

/// A warning of Qt's is a mistake of ours: the running test fails. What a platform without windows
/// cannot do is none.
void failOnWarning(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if ((type == QtWarningMsg || type == QtCriticalMsg) &&
        !message.startsWith(QStringLiteral("This plugin does not support "))) {
        ADD_FAILURE() << "Qt: " << message.toStdString();
    }
}

} // namespace

/// For tests of widgets, which are drawn in memory, with one style and font on every machine.
int main(int argc, char** argv) {
    // Nothing of the user's may be read or written, even by mistake. Below a file not even root can
    // make a folder.
    constexpr auto nowhere = "/dev/null/nowhere";
    qputenv("HOME", nowhere);
    qputenv("XDG_CONFIG_HOME", nowhere);
    qputenv("XDG_RUNTIME_DIR", nowhere);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qunsetenv("QT_QPA_PLATFORMTHEME");
    qunsetenv("QT_STYLE_OVERRIDE");
    // Servers of tests are on this machine.
    qputenv("no_proxy", "*");
    testing::InitGoogleTest(&argc, argv);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    const QApplication application(argc, argv);
    // It need not be installed.
    const QDir fonts(QStringLiteral(TEST_FONTS));
    for (const QString& file : fonts.entryList({QStringLiteral("DejaVuSans*.ttf")})) {
        QFontDatabase::addApplicationFont(fonts.filePath(file));
    }
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    QApplication::setQuitOnLastWindowClosed(false);
    orvel::installAccessibility();
    qInstallMessageHandler(failOnWarning);
    return RUN_ALL_TESTS();
}
