// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/WindowGeometry.h"

#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <gtest/gtest.h>

namespace orvel::test {

namespace {

class WindowGeometryTest : public testing::Test {
protected:
    WindowGeometryTest() {
        window_.setObjectName(QStringLiteral("a-window"));
        window_.setGeometry(20, 30, 300, 200);
    }

    /// Saves as one launch does: the destructor waits for the write.
    void save() { WindowGeometry(defaults_).save(window_); }

    InMemoryUserDefaults defaults_;
    QWidget window_;
    QWidget next_;
};

} // namespace

TEST_F(WindowGeometryTest, RestoresTheGeometryAtTheNextLaunch) {
    save();
    next_.setObjectName(QStringLiteral("a-window"));
    EXPECT_TRUE(WindowGeometry(defaults_).restore(next_));
    EXPECT_EQ(next_.geometry(), window_.geometry());
}

TEST_F(WindowGeometryTest, SavesEachWindowSeparately) {
    save();
    next_.setObjectName(QStringLiteral("another-window"));
    EXPECT_FALSE(WindowGeometry(defaults_).restore(next_));
}

TEST_F(WindowGeometryTest, CentresAWindowWhoseScreenIsGone) {
    window_.setGeometry(20'000, 20'000, 300, 200);
    save();
    next_.setObjectName(QStringLiteral("a-window"));
    EXPECT_TRUE(WindowGeometry(defaults_).restore(next_));
    EXPECT_EQ(next_.size(), window_.size());
    const QPoint middle = QGuiApplication::primaryScreen()->availableGeometry().center();
    EXPECT_LE((next_.frameGeometry().center() - middle).manhattanLength(), 2);
}

TEST_F(WindowGeometryTest, IgnoresAnInvalidSavedGeometry) {
    defaults_.set("window.a-window", "nonsense");
    EXPECT_FALSE(WindowGeometry(defaults_).restore(window_));
}

TEST_F(WindowGeometryTest, IgnoresAFailureToSave) {
    defaults_.setFailsWrites(true);
    save();
    EXPECT_FALSE(defaults_.contains("window.a-window"));
}

} // namespace orvel::test
