// SPDX-License-Identifier: Apache-2.0
#include "platform/LoginItem.h"

#include "tests/platform/LoginItemCalls.h"
#include "tests/platform/RealLoginItem.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/FakeLoginItem.h"

#include <QCoreApplication>
#include <QThread>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <variant>
#include <vector>

namespace orvel::test {

namespace {

using Status = LoginItem::Status;

struct RealFixture {
    TemporaryDirectory folder;
    std::unique_ptr<LoginItem> item = makeRealLoginItem(folder.path());
};

struct FakeFixture {
    std::unique_ptr<LoginItem> item = std::make_unique<FakeLoginItem>();
};

template <typename Fixture>
class LoginItemTest : public testing::Test {
protected:
    LoginItem& item() { return *fixture_.item; }

    std::optional<tavrin::PlatformError> registerItem() {
        return resultOf(item(), &LoginItem::registerItem);
    }
    std::optional<tavrin::PlatformError> unregisterItem() {
        return resultOf(item(), &LoginItem::unregisterItem);
    }
    Status status() { return std::get<Status>(statusOf(item())); }

    Fixture fixture_;
};

using Fixtures = testing::Types<RealFixture, FakeFixture>;
TYPED_TEST_SUITE(LoginItemTest, Fixtures);

} // namespace

TYPED_TEST(LoginItemTest, IsRegisteredUntilItIsUnregistered) {
    EXPECT_EQ(this->status(), Status::NotRegistered);
    EXPECT_EQ(this->registerItem(), std::nullopt);
    EXPECT_EQ(this->status(), Status::Enabled);
    EXPECT_EQ(this->unregisterItem(), std::nullopt);
    EXPECT_EQ(this->status(), Status::NotRegistered);
}

TYPED_TEST(LoginItemTest, RegisteringOrUnregisteringTwiceSucceeds) {
    EXPECT_EQ(this->unregisterItem(), std::nullopt);
    EXPECT_EQ(this->registerItem(), std::nullopt);
    EXPECT_EQ(this->registerItem(), std::nullopt);
    EXPECT_EQ(this->status(), Status::Enabled);
    EXPECT_EQ(this->unregisterItem(), std::nullopt);
    EXPECT_EQ(this->unregisterItem(), std::nullopt);
    EXPECT_EQ(this->status(), Status::NotRegistered);
}

TYPED_TEST(LoginItemTest, RepairingChangesNoItemThatNeedsNone) {
    EXPECT_EQ(resultOf(this->item(), &LoginItem::repairItem), std::nullopt);
    EXPECT_EQ(this->status(), Status::NotRegistered);
    EXPECT_EQ(this->registerItem(), std::nullopt);
    EXPECT_EQ(resultOf(this->item(), &LoginItem::repairItem), std::nullopt);
    EXPECT_EQ(this->status(), Status::Enabled);
}

TYPED_TEST(LoginItemTest, TheLastOfSeveralChangesTakesEffect) {
    std::vector<int> order;
    const auto note = [&order](int change) {
        return [&order, change](const auto&) {
            order.push_back(change);
        };
    };
    this->item().registerItem(note(1));
    this->item().unregisterItem(note(2));
    this->item().registerItem(note(3));
    EXPECT_TRUE(order.empty()) << "never before the call returns";
    EXPECT_EQ(this->status(), Status::Enabled);
    EXPECT_EQ(order, (std::vector{1, 2, 3}));
}

TYPED_TEST(LoginItemTest, CallsBackOnTheMainThread) {
    std::vector<QThread*> threads;
    const auto note = [&threads](const auto&) {
        threads.push_back(QThread::currentThread());
    };
    this->item().registerItem(note);
    this->item().unregisterItem(note);
    this->item().repairItem(note);
    this->item().status(note);
    waitFor([&threads] { return threads.size() == 4; });
    EXPECT_EQ(threads, std::vector<QThread*>(4, QCoreApplication::instance()->thread()));
}

TYPED_TEST(LoginItemTest, ADestroyedItemDoesNotCallBack) {
    const auto witness = std::make_shared<int>();
    bool isCalled = false;
    const auto note = [&isCalled, witness](const auto&) {
        isCalled = true;
    };
    this->item().registerItem(note);
    this->item().status(note);
    this->fixture_.item.reset();
    processEvents();
    EXPECT_FALSE(isCalled);
}

TYPED_TEST(LoginItemTest, ACompletionMayDestroyTheItem) {
    bool isCalled = false;
    this->item().registerItem([this, &isCalled](const auto&) {
        this->fixture_.item.reset();
        isCalled = true;
    });
    waitFor([&isCalled] { return isCalled; });
}

} // namespace orvel::test
