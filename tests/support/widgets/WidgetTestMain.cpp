// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/Accessibility.h"

#include <QApplication>
#include <QDir>
#include <QFont>
#include <QFontDatabase>
#include <QStyleFactory>

#include <gtest/gtest.h>

namespace {

/// Qt warnings indicate mistakes in our code, so they fail the running test. Warnings about what
/// the offscreen platform cannot do are ignored.
void failOnWarning(QtMsgType type, const QMessageLogContext&, const QString& message) {
    if ((type == QtWarningMsg || type == QtCriticalMsg) &&
        !message.startsWith(QStringLiteral("This plugin does not support "))) {
        ADD_FAILURE() << "Qt: " << message.toStdString();
    }
}

} // namespace

/// For tests of widgets, which are drawn in memory with the same style and font on every machine.
int main(int argc, char** argv) {
    // Protect the user's files from mistakes in tests. Not even root can create a folder here.
    constexpr auto nowhere = "/dev/null/nowhere";
    qputenv("HOME", nowhere);
    qputenv("XDG_CONFIG_HOME", nowhere);
    qputenv("XDG_RUNTIME_DIR", nowhere);
    qputenv("QT_QPA_PLATFORM", "offscreen");
    qunsetenv("QT_QPA_PLATFORMTHEME");
    qunsetenv("QT_STYLE_OVERRIDE");
    // Test servers run on this machine.
    qputenv("no_proxy", "*");
    testing::InitGoogleTest(&argc, argv);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    const QApplication application(argc, argv);
    // Load the font from its file if it is not installed.
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
