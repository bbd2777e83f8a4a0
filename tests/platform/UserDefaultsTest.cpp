// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for all user defaults: the fake and this system's in a file.
#include "core/UserDefaults.h"

#include "core/Errors.h"
#include "platform/Platform.h"
#include "tests/support/FileSizeLimit.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::Date;
using tavrin::PlatformError;
using tavrin::UserDefaults;

constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

Date dateOf(double seconds) {
    return Date(tavrin::Seconds(seconds));
}

struct RealFixture {
    TemporaryDirectory folder;
    std::unique_ptr<UserDefaults> owned = makeUserDefaults(folder / "defaults");
    UserDefaults& defaults = *owned;

    template <typename Work>
    void withFailingWrites(Work work) {
        const FileSizeLimit limit(0);
        work();
    }
};

struct InMemoryFixture {
    InMemoryUserDefaults defaults;

    template <typename Work>
    void withFailingWrites(Work work) {
        defaults.setFailsWrites(true);
        work();
        defaults.setFailsWrites(false);
    }
};

template <typename Fixture>
class UserDefaultsTest : public testing::Test {
protected:
    UserDefaults& defaults() { return fixture_.defaults; }

    Fixture fixture_;
};

using Fixtures = testing::Types<RealFixture, InMemoryFixture>;
TYPED_TEST_SUITE(UserDefaultsTest, Fixtures);

} // namespace

TEST(UserDefaultsFileTest, ANameWithoutAFolderIsAFileInTheCurrentFolder) {
    const TemporaryDirectory folder;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const std::unique_ptr<UserDefaults> defaults = makeUserDefaults("state");
    EXPECT_NO_THROW(defaults->set("k", std::int64_t{1}));
    std::filesystem::current_path(before);
    EXPECT_NO_THROW(defaults->set("l", std::int64_t{2})) << "the current folder has changed";
    EXPECT_EQ(storedValue<std::int64_t>(*makeUserDefaults(folder / "state"), "k"), 1);
    EXPECT_EQ(storedValue<std::int64_t>(*makeUserDefaults(folder / "state"), "l"), 2);
}

TYPED_TEST(UserDefaultsTest, GivesNothingForAKeyThatWasNeverSet) {
    EXPECT_EQ(storedValue<std::string>(this->defaults(), "k"), std::nullopt);
    EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "k"), std::nullopt);
    EXPECT_EQ(storedValue<bool>(this->defaults(), "k"), std::nullopt);
    EXPECT_EQ(storedValue<tavrin::Date>(this->defaults(), "k"), std::nullopt);
}

TYPED_TEST(UserDefaultsTest, GivesBackIntegers) {
    for (const std::int64_t value : {std::int64_t{0}, std::int64_t{-1}, largest, smallest}) {
        this->defaults().set("k", value);
        EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "k"), value);
    }
}

TYPED_TEST(UserDefaultsTest, GivesBackBooleans) {
    for (const bool value : {true, false}) {
        this->defaults().set("k", value);
        EXPECT_EQ(storedValue<bool>(this->defaults(), "k"), value);
    }
}

TYPED_TEST(UserDefaultsTest, GivesBackDatesToTheMillisecond) {
    for (const double seconds :
         {0.0,
          -0.001,
          -62'135'596'800.0,
          1'710'003'942.0,
          1'710'003'942.123,
          253'402'300'799.999}) {
        this->defaults().set("k", dateOf(seconds));
        EXPECT_EQ(storedValue<tavrin::Date>(this->defaults(), "k"), dateOf(seconds)) << seconds;
    }
}

TYPED_TEST(UserDefaultsTest, GivesBackAnyText) {
    for (const char* value :
         {"withBodies",
          "",
          " both ends ",
          "\xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96 \xE2\x80\xA8",
          "a,b, c",
          "a=b;c#d[e]",
          "\"quoted\" 'single'",
          "'",
          "''",
          "back\\slash\\n %41",
          "line\r\nbreak\ttab\x01",
          "@Invalid()",
          "@",
          "12",
          "-9223372036854775808",
          "9223372036854775808",
          "007",
          "1.5",
          "true",
          "TRUE",
          "false",
          "2024-03-09T17:05:42.123Z",
          "2024-03-09T17:05:42Z"}) {
        this->defaults().set("k", value);
        EXPECT_EQ(storedValue<std::string>(this->defaults(), "k"), value);
        EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "k"), std::nullopt) << value;
        EXPECT_EQ(storedValue<bool>(this->defaults(), "k"), std::nullopt) << value;
        EXPECT_EQ(storedValue<tavrin::Date>(this->defaults(), "k"), std::nullopt) << value;
    }
}

TYPED_TEST(UserDefaultsTest, GivesNothingForAnotherType) {
    UserDefaults& defaults = this->defaults();
    defaults.set("integer", 1);
    defaults.set("boolean", true);
    defaults.set("date", dateOf(0));
    for (const char* key : {"boolean", "date"}) {
        EXPECT_EQ(storedValue<std::int64_t>(defaults, key), std::nullopt) << key;
    }
    for (const char* key : {"integer", "date"}) {
        EXPECT_EQ(storedValue<bool>(defaults, key), std::nullopt) << key;
    }
    for (const char* key : {"integer", "boolean"}) {
        EXPECT_EQ(storedValue<tavrin::Date>(defaults, key), std::nullopt) << key;
    }
    for (const char* key : {"integer", "boolean", "date"}) {
        EXPECT_EQ(storedValue<std::string>(defaults, key), std::nullopt) << key;
    }
}

TYPED_TEST(UserDefaultsTest, ALaterValueReplacesAnEarlierOneOfAnyType) {
    this->defaults().set("k", "text");
    this->defaults().set("k", 5);
    EXPECT_EQ(storedValue<std::string>(this->defaults(), "k"), std::nullopt);
    EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "k"), 5);
}

TYPED_TEST(UserDefaultsTest, DistinguishesKeysByEveryLetter) {
    this->defaults().set("messages.k", 1);
    this->defaults().set("messages.K", 2);
    EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "messages.k"), 1);
    EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "messages"), std::nullopt);
}

TYPED_TEST(UserDefaultsTest, ForgetsARemovedValue) {
    this->defaults().set("k", 1);
    this->defaults().set("other", 2);
    this->defaults().remove("k");
    EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "k"), std::nullopt);
    EXPECT_EQ(storedValue<std::int64_t>(this->defaults(), "other"), 2);
}

TYPED_TEST(UserDefaultsTest, RemovingAMissingKeyIsNoError) {
    EXPECT_NO_THROW(this->defaults().remove("k"));
}

TYPED_TEST(UserDefaultsTest, AFailedWriteThrowsAndKeepsTheOldValue) {
    UserDefaults& defaults = this->defaults();
    defaults.set("k", 1);
    this->fixture_.withFailingWrites([&defaults] {
        EXPECT_THROW(defaults.set("k", 2), PlatformError);
        EXPECT_THROW(defaults.set("new", "text"), PlatformError);
        EXPECT_THROW(defaults.remove("k"), PlatformError);
        EXPECT_EQ(storedValue<std::int64_t>(defaults, "k"), 1);
        EXPECT_EQ(storedValue<std::string>(defaults, "new"), std::nullopt);
    });
    defaults.set("later", 3);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "k"), 1);
    EXPECT_EQ(storedValue<std::string>(defaults, "new"), std::nullopt);
    EXPECT_EQ(storedValue<std::int64_t>(defaults, "later"), 3);
}

TYPED_TEST(UserDefaultsTest, HasOneHolderOfItsLockAtATime) {
    auto lock = this->defaults().tryLock();
    EXPECT_NE(lock, nullptr);
    EXPECT_EQ(this->defaults().tryLock(), nullptr);
    lock.reset();
    EXPECT_NE(this->defaults().tryLock(), nullptr);
}

TEST(UserDefaultsFileTest, TheHolderOfTheLockSeesWhatOthersHaveWritten) {
    const TemporaryDirectory folder;
    const auto one = makeUserDefaults(folder / "defaults");
    const auto other = makeUserDefaults(folder / "defaults");
    other->set("k", std::int64_t{1});
    const auto lock = one->tryLock();
    EXPECT_EQ(storedValue<std::int64_t>(*one, "k"), 1);
    EXPECT_EQ(other->tryLock(), nullptr);
}

TEST(UserDefaultsFileTest, ALockThatCannotBeCreatedIsAnError) {
    const TemporaryDirectory folder;
    const auto defaults = makeUserDefaults(folder / "defaults");
    std::filesystem::create_directory(folder / "defaults.inuse");
    EXPECT_THROW(static_cast<void>(defaults->tryLock()), PlatformError);
}

} // namespace orvel::test
