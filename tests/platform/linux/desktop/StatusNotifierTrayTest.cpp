// SPDX-License-Identifier: Apache-2.0
//
// Tests trays on the session bus only; X trays would need an X server.
#include "platform/linux/desktop/StatusNotifierTray.h"

#include "platform/linux/support/SessionBus.h"
#include "tests/platform/linux/BusService.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/ManualClock.h"

#include <QDBusVariant>

#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace orvel::test {

namespace {

/// A fake status notifier watcher.
class Watcher {
public:
    explicit Watcher(bool hasHost) : hasHost_(hasHost) {}

    void setHasHost(bool hasHost) {
        hasHost_ = hasHost;
        service_.signal(
            QStringLiteral("org.kde.StatusNotifierWatcher"),
            hasHost ? QStringLiteral("StatusNotifierHostRegistered")
                    : QStringLiteral("StatusNotifierHostUnregistered"),
            {});
    }

    int questions = 0;

private:
    QDBusMessage answer(const QDBusMessage& call) {
        ++questions;
        return call.arguments().value(1) == QStringLiteral("IsStatusNotifierHostRegistered")
                   ? call.createReply(QVariant::fromValue(QDBusVariant(hasHost_)))
                   : call.createErrorReply(QDBusError::UnknownProperty, QString());
    }

    bool hasHost_;
    BusService service_{
        QStringLiteral("org.kde.StatusNotifierWatcher"),
        QStringLiteral("/StatusNotifierWatcher"),
        [this](const QDBusMessage& call) {
            return answer(call);
        }};
};

class StatusNotifierTrayTest : public testing::Test {
protected:
    StatusNotifierTrayTest() { qunsetenv("DISPLAY"); }
    ~StatusNotifierTrayTest() override {
        if (!display_.isEmpty()) {
            qputenv("DISPLAY", display_);
        }
    }

    void make(SessionBus::Share shareBus = [] { return nullptr; }) {
        tray_ = std::make_unique<StatusNotifierTray>(clock_, std::move(shareBus));
        subscription_ = tray_->onChange([this] { ++changes_; });
    }

    ManualClock clock_;
    QByteArray display_ = qgetenv("DISPLAY");
    int changes_ = 0;
    std::unique_ptr<Tray> tray_;
    std::unique_ptr<Subscription> subscription_;
};

} // namespace

TEST_F(StatusNotifierTrayTest, FindsARunningTray) {
    const Watcher watcher(true);
    make();
    EXPECT_FALSE(tray_->isAvailable());
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(tray_->isAvailable());
}

TEST_F(StatusNotifierTrayTest, FindsTheTrayOnASharedBus) {
    const Watcher watcher(true);
    const SessionBus bus(QDBusConnection::connectToBus(
        QDBusConnection::SessionBus, QStringLiteral("shared with the tray")));
    make([&] { return bus.share(); });
    EXPECT_FALSE(tray_->isAvailable());
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(tray_->isAvailable());
    tray_.reset();
    EXPECT_TRUE(bus.isConnected());
}

TEST_F(StatusNotifierTrayTest, AWatcherWithoutAHostIsNoTray) {
    Watcher watcher(false);
    make();
    ASSERT_TRUE(waitUntil([&] { return watcher.questions == 1; }));
    watcher.setHasHost(true);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(tray_->isAvailable());
    watcher.setHasHost(false);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 2; }));
    EXPECT_FALSE(tray_->isAvailable());
}

TEST_F(StatusNotifierTrayTest, FindsATrayThatStartsLate) {
    make();
    ASSERT_TRUE(waitUntil([rounds = 0]() mutable { return ++rounds > 50; }));
    EXPECT_FALSE(tray_->isAvailable());
    auto watcher = std::make_unique<Watcher>(true);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(tray_->isAvailable());
    watcher.reset();
    ASSERT_TRUE(waitUntil([this] { return changes_ == 2; }));
    EXPECT_FALSE(tray_->isAvailable());
}

} // namespace orvel::test
