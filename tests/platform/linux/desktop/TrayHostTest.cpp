// SPDX-License-Identifier: Apache-2.0
//
// The trays of the session bus; those of an X display need one.
#include "platform/linux/desktop/TrayHost.h"

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

/// Where hosts and items of the tray find each other.
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

class TrayHostTest : public testing::Test {
protected:
    TrayHostTest() { qunsetenv("DISPLAY"); }
    ~TrayHostTest() override {
        if (!display_.isEmpty()) {
            qputenv("DISPLAY", display_);
        }
    }

    void make(std::unique_ptr<SessionBus> bus = nullptr) {
        host_ = std::make_unique<TrayHost>(clock_, std::move(bus), [this] { ++changes_; });
    }

    ManualClock clock_;
    QByteArray display_ = qgetenv("DISPLAY");
    int changes_ = 0;
    std::unique_ptr<TrayHost> host_;
};

} // namespace

TEST_F(TrayHostTest, FindsTheTrayThatIsThere) {
    const Watcher watcher(true);
    make();
    EXPECT_FALSE(host_->isPresent());
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(host_->isPresent());
}

TEST_F(TrayHostTest, FindsTheTrayOnABusThatItShares) {
    const Watcher watcher(true);
    const SessionBus bus(QDBusConnection::connectToBus(
        QDBusConnection::SessionBus, QStringLiteral("shared with the tray")));
    make(bus.share());
    EXPECT_FALSE(host_->isPresent());
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(host_->isPresent());
    host_.reset();
    EXPECT_TRUE(bus.isConnected());
}

TEST_F(TrayHostTest, AWatcherWithoutAHostIsNoTray) {
    Watcher watcher(false);
    make();
    ASSERT_TRUE(waitUntil([&] { return watcher.questions == 1; }));
    watcher.setHasHost(true);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(host_->isPresent());
    watcher.setHasHost(false);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 2; }));
    EXPECT_FALSE(host_->isPresent());
}

TEST_F(TrayHostTest, FindsATrayThatComesLate) {
    make();
    ASSERT_TRUE(waitUntil([rounds = 0]() mutable { return ++rounds > 50; }));
    EXPECT_FALSE(host_->isPresent());
    auto watcher = std::make_unique<Watcher>(true);
    ASSERT_TRUE(waitUntil([this] { return changes_ == 1; }));
    EXPECT_TRUE(host_->isPresent());
    watcher.reset();
    ASSERT_TRUE(waitUntil([this] { return changes_ == 2; }));
    EXPECT_FALSE(host_->isPresent());
}

} // namespace orvel::test
