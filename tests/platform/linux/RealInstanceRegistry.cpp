// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealInstanceRegistry.h"

#include "platform/linux/desktop/SessionInstanceRegistry.h"
#include "tests/support/Program.h"
#include "tests/support/WaitUntil.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <optional>

namespace orvel::test {

namespace {

class SessionSubject final : public InstanceRegistrySubject {
public:
    InstanceRegistry& registry() override { return *registry_; }
    void destroyRegistry() override { registry_.reset(); }
    std::string startFirstCopy() override {
        other_.emplace(Program::Options{{DESKTOP_PROBE, "claim", testIdentifier}, {}});
        EXPECT_TRUE(waitUntil([this] { return other_->output() == "first\n"; }));
        return testIdentifier;
    }
    void startSecondCopy() override {
        Program second({{DESKTOP_PROBE, "claim", testIdentifier}, {}});
        EXPECT_TRUE(waitUntil([&] { return second.waitFor({}).has_value(); }));
        EXPECT_EQ(second.output(), "other " + std::to_string(getpid()) + "\n");
    }
    bool isOtherActivated() override { return other_->output() == "first\nactivated\n"; }

private:
    std::optional<Program> other_;
    std::unique_ptr<InstanceRegistry> registry_ = std::make_unique<SessionInstanceRegistry>();
};

} // namespace

std::unique_ptr<InstanceRegistrySubject> makeRealInstanceRegistry() {
    return std::make_unique<SessionSubject>();
}

} // namespace orvel::test
