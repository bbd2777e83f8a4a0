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
    defaults_->setString("string", "a\xC3\xA9");
    defaults_->setInteger("integer", std::numeric_limits<std::int64_t>::max());
    defaults_->setInteger("one", 1);
    defaults_->setBoolean("boolean", true);
    defaults_->setDate("date", date);

    EXPECT_EQ(defaults_->string("string"), "a\xC3\xA9");
    EXPECT_EQ(defaults_->integer("integer"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(defaults_->boolean("boolean"), true);
    EXPECT_EQ(defaults_->date("date"), date);

    EXPECT_EQ(defaults_->integer("boolean"), std::nullopt);
    EXPECT_EQ(defaults_->boolean("one"), std::nullopt);
    EXPECT_EQ(defaults_->string("integer"), std::nullopt);
    EXPECT_EQ(defaults_->date("string"), std::nullopt);
    EXPECT_EQ(defaults_->string("missing"), std::nullopt);
}

TEST_F(FoundationUserDefaultsTest, AnotherObjectSeesWhatWasWritten) {
    defaults_->setInteger("k", 7);
    EXPECT_EQ(FoundationUserDefaults(suite_).integer("k"), 7);
    defaults_->remove("k");
    EXPECT_EQ(FoundationUserDefaults(suite_).integer("k"), std::nullopt);
}

} // namespace orvel::test
