// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/InstanceName.h"

#include "platform/linux/support/SessionBus.h"
#include "tests/support/WaitUntil.h"

#include <QDBusConnectionInterface>
#include <QString>

#include <gtest/gtest.h>

#include <memory>
#include <variant>

namespace orvel::test {

namespace {

constexpr auto name = "app.test.InstanceName";

bool isTaken() {
    return QDBusConnection::sessionBus().interface()->isServiceRegistered(
        QString::fromLatin1(name));
}

} // namespace

TEST(InstanceNameTest, ReleasesTheNameWhileItsBusIsStillInUse) {
    auto instance = std::make_unique<InstanceName>(name, [] {});
    EXPECT_EQ(instance->shareBus(), nullptr) << "before there was one";
    ASSERT_TRUE(std::holds_alternative<InstanceName::Own>(instance->take()));
    EXPECT_TRUE(isTaken());
    const std::unique_ptr<SessionBus> bus = instance->shareBus();
    ASSERT_NE(bus, nullptr);

    instance.reset();
    EXPECT_TRUE(waitUntil([] { return !isTaken(); }));
    EXPECT_TRUE(bus->isConnected());
}

} // namespace orvel::test
