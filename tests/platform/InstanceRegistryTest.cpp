// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every instance registry: the fake and this system's.
#include "platform/InstanceRegistry.h"

#include "tests/platform/RealInstanceRegistry.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeInstanceRegistry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>

namespace orvel {

namespace {

using test::waitUntil;

class FakeSubject final : public test::InstanceRegistrySubject {
public:
    InstanceRegistry& registry() override { return *registry_; }
    void destroyRegistry() override { registry_.reset(); }
    std::string startFirstCopy() override {
        registry_->otherCopy = {getpid() + 1};
        return test::testIdentifier;
    }
    void startSecondCopy() override { registry_->beActivated(); }
    bool isOtherActivated() override { return !registry_->activatedCopies.empty(); }

private:
    std::unique_ptr<test::FakeInstanceRegistry> registry_ =
        std::make_unique<test::FakeInstanceRegistry>();
};

struct Kind {
    const char* name;
    std::unique_ptr<test::InstanceRegistrySubject> (*make)();
};

class InstanceRegistryTest : public testing::TestWithParam<Kind> {
protected:
    InstanceRegistry& registry() { return subject_->registry(); }

    std::unique_ptr<test::InstanceRegistrySubject> subject_ = GetParam().make();
};

} // namespace

TEST_P(InstanceRegistryTest, TheFirstCopyFindsNoOther) {
    EXPECT_FALSE(registry().runningCopy(test::testIdentifier));
    EXPECT_FALSE(registry().runningCopy(test::testIdentifier)) << "took itself for another copy";
}

TEST_P(InstanceRegistryTest, ALaterCopyFindsTheFirst) {
    const auto other = registry().runningCopy(subject_->startFirstCopy());
    ASSERT_TRUE(other);
    EXPECT_NE(other->processIdentifier, getpid());
    registry().activateCopy(*other);
    EXPECT_TRUE(waitUntil([this] { return subject_->isOtherActivated(); }));
}

TEST_P(InstanceRegistryTest, ReportsThatAnotherCopyWasStarted) {
    ASSERT_FALSE(registry().runningCopy(test::testIdentifier));
    int activations = 0;
    const auto subscription = registry().onActivation([&] { ++activations; });
    subject_->startSecondCopy();
    EXPECT_TRUE(waitUntil([&] { return activations == 1; }));
    subject_->startSecondCopy();
    EXPECT_TRUE(waitUntil([&] { return activations == 2; }));
}

TEST_P(InstanceRegistryTest, AnEndedSubscriptionIsNotCalled) {
    ASSERT_FALSE(registry().runningCopy(test::testIdentifier));
    bool isCalled = false;
    auto ended = registry().onActivation([&] { isCalled = true; });
    int activations = 0;
    const auto subscription = registry().onActivation([&] { ++activations; });
    ended.reset();
    subject_->startSecondCopy();
    EXPECT_TRUE(waitUntil([&] { return activations == 1; }));
    EXPECT_FALSE(isCalled);
}

TEST_P(InstanceRegistryTest, ASubscriptionMayOutliveIt) {
    auto activation = registry().onActivation([] {});
    subject_->destroyRegistry();
    activation.reset();
}

INSTANTIATE_TEST_SUITE_P(
    Implementations,
    InstanceRegistryTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<test::InstanceRegistrySubject> {
                return std::make_unique<FakeSubject>();
            }},
        Kind{"Real", test::makeRealInstanceRegistry}),
    [](const auto& kind) { return kind.param.name; });

} // namespace orvel
