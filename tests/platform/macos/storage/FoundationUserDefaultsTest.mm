// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/FoundationUserDefaults.h"

#include "platform/macos/support/FoundationConversions.h"

#import <Foundation/Foundation.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace orvel::test {

namespace {

/// Uses its own suite, which is removed at the end.
class FoundationUserDefaultsTest : public testing::Test {
protected:
    ~FoundationUserDefaultsTest() override {
        [[NSUserDefaults standardUserDefaults] removePersistentDomainForName:nsString(suite_)];
    }

    std::string suite_ = "app.test." + utf8(NSProcessInfo.processInfo.globallyUniqueString);
    std::unique_ptr<FoundationUserDefaults> defaults_ =
        std::make_unique<FoundationUserDefaults>(suite_);
};

} // namespace

TEST_F(FoundationUserDefaultsTest, ReturnsEveryTypeAndNothingForAnother) {
    const tavrin::Date date(tavrin::Seconds(1'700'000'000.123));
    defaults_->set("string", "a\xC3\xA9");
    defaults_->set("integer", std::numeric_limits<std::int64_t>::max());
    defaults_->set("one", 1);
    defaults_->set("boolean", true);
    defaults_->set("date", date);

    EXPECT_EQ(storedValue<std::string>(*defaults_, "string"), "a\xC3\xA9");
    EXPECT_EQ(
        storedValue<std::int64_t>(*defaults_, "integer"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(storedValue<bool>(*defaults_, "boolean"), true);
    EXPECT_EQ(storedValue<tavrin::Date>(*defaults_, "date"), date);

    EXPECT_EQ(storedValue<std::int64_t>(*defaults_, "boolean"), std::nullopt);
    EXPECT_EQ(storedValue<bool>(*defaults_, "one"), std::nullopt);
    EXPECT_EQ(storedValue<std::string>(*defaults_, "integer"), std::nullopt);
    EXPECT_EQ(storedValue<tavrin::Date>(*defaults_, "string"), std::nullopt);
    EXPECT_EQ(storedValue<std::string>(*defaults_, "missing"), std::nullopt);
}

TEST_F(FoundationUserDefaultsTest, AnotherObjectSeesWhatWasWritten) {
    defaults_->set("k", 7);
    EXPECT_EQ(storedValue<std::int64_t>(FoundationUserDefaults(suite_), "k"), 7);
    defaults_->remove("k");
    EXPECT_EQ(storedValue<std::int64_t>(FoundationUserDefaults(suite_), "k"), std::nullopt);
}

} // namespace orvel::test
