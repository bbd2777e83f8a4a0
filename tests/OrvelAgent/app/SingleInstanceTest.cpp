// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/SingleInstance.h"

#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeInstanceRegistry.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvel::test {

namespace {

/// Prints each entry, because only the output of the exiting process can be checked.
class PrintingLogStore final : public LogStore {
public:
    void write(LogLevel level, std::string_view category, std::string_view message) override {
        std::fprintf(
            stderr,
            "log %d %s: %s\n",
            static_cast<int>(level),
            std::string(category).c_str(),
            std::string(message).c_str());
    }
    void readEntries(tavrin::Date, std::function<void(Entries)>) override {}
};

/// Another copy runs. Prints that it is brought to the front.
class PrintingInstanceRegistry final : public InstanceRegistry {
public:
    [[nodiscard]] std::optional<RunningApplication> runningCopy(const std::string&) override {
        return RunningApplication{4711};
    }
    void activateCopy(const RunningApplication& application) override {
        std::fprintf(stderr, "activate %d\n", static_cast<int>(application.processIdentifier));
    }
    [[nodiscard]] std::unique_ptr<Subscription> onActivation(std::function<void()>) override {
        return nullptr;
    }
};

class SingleInstanceTest : public testing::Test {
protected:
    SingleInstanceTest() { bundle_.setInfo("CFBundleIdentifier", "app.test"); }

    FakeBundle bundle_;
    FakeInstanceRegistry registry_;
    PrintingLogStore log_;
};

} // namespace

TEST_F(SingleInstanceTest, TheFirstCopyKeepsRunning) {
    testing::internal::CaptureStderr();
    SingleInstance::terminateIfAlreadyRunning(bundle_, registry_, log_);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(registry_.activatedCopies.empty());
}

TEST_F(SingleInstanceTest, ALaterCopyReportsTheOtherActivatesItAndExits) {
    PrintingInstanceRegistry registry;
    EXPECT_EXIT(
        SingleInstance::terminateIfAlreadyRunning(bundle_, registry, log_),
        testing::ExitedWithCode(0),
        "^Another instance is already running \\(pid 4711\\); this copy is exiting\\.\n"
        "log 4 lifecycle: Another instance is already running \\(pid 4711\\); this copy is "
        "exiting\\.\nactivate 4711\n$");
}

TEST_F(SingleInstanceTest, WithoutAnIdentifierItKeepsRunning) {
    bundle_.setInfo("CFBundleIdentifier", "");
    PrintingInstanceRegistry registry;
    constexpr int isRunning = 3;
    EXPECT_EXIT(
        {
            SingleInstance::terminateIfAlreadyRunning(bundle_, registry, log_);
            std::_Exit(isRunning);
        },
        testing::ExitedWithCode(isRunning),
        "^$");
}

} // namespace orvel::test
