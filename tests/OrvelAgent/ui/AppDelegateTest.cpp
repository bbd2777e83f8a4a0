// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/AppDelegate.h"

#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeApplicationFocus.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <gtest/gtest.h>

namespace orvel::test {

namespace {

QRect available() {
    return QGuiApplication::primaryScreen()->availableGeometry();
}

QPoint middle(const QWidget& window) {
    return window.frameGeometry().center();
}

class AppDelegateTest : public testing::Test {
protected:
    void show(QPoint position) {
        window_.resize(200, 100);
        window_.move(position);
        window_.show();
        processEvents();
    }

    FakeApplicationFocus focus_;
    AppDelegate delegate_{focus_};
    QWidget window_;
};

} // namespace

TEST_F(AppDelegateTest, CentresAWindowOutsideAllScreens) {
    show(available().bottomRight() + QPoint(500, 500));
    delegate_.rescueAllWindows();
    EXPECT_LE((middle(window_) - available().center()).manhattanLength(), 2);
}

TEST_F(AppDelegateTest, DoesNotMoveAPartlyVisibleWindow) {
    const QPoint position = available().bottomRight() - QPoint(5, 5);
    show(position);
    delegate_.rescueAllWindows();
    EXPECT_EQ(window_.pos(), position);
}

TEST_F(AppDelegateTest, DoesNotMoveAWindowWithoutATitleBar) {
    const QPoint position = available().bottomRight() + QPoint(500, 500);
    window_.setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
    show(position);
    delegate_.rescueAllWindows();
    EXPECT_EQ(window_.pos(), position);
}

TEST_F(AppDelegateTest, MovesAFocusedWindowOntoAScreen) {
    show(available().bottomRight() + QPoint(500, 500));
    window_.activateWindow();
    ASSERT_TRUE(waitUntil([this] { return window_.isActiveWindow(); }));
    EXPECT_LE((middle(window_) - available().center()).manhattanLength(), 2);
    EXPECT_GE(focus_.activations, 1);
}

TEST_F(AppDelegateTest, MovesWindowsOntoAScreenWhenAScreenChanges) {
    show(available().center());
    window_.move(available().bottomRight() + QPoint(500, 500));
    Q_EMIT QGuiApplication::primaryScreen()->availableGeometryChanged(available());
    EXPECT_LE((middle(window_) - available().center()).manhattanLength(), 2);
}

} // namespace orvel::test
