// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/WindowGeometry.h"

#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>

#include <gtest/gtest.h>

#include <atomic>

namespace orvel::test {

namespace {

/// As a thread's own variable, counts when the thread ends.
struct CountedAtEnd {
    std::atomic<int>* count;
    ~CountedAtEnd() { ++*count; }
};

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

TEST_F(WindowGeometryTest, TheThreadEndsWithTheLastWriteAndTheNextStartsAnother) {
    std::atomic<int> ended = 0;
    defaults_.setOnWrite([&ended] { thread_local const CountedAtEnd counted{&ended}; });
    WindowGeometry geometry(defaults_);
    for (const int finished : {1, 2}) {
        geometry.save(window_);
        geometry.save(next_);
        EXPECT_TRUE(waitUntil([&] { return ended == finished; }));
        EXPECT_EQ(defaults_.takeChangedKeys().size(), 2U);
    }
}

} // namespace orvel::test
