// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every keychain: the fake and this system's.
#include "platform/Keychain.h"

#include "tests/platform/KeychainCalls.h"
#include "tests/platform/RealKeychain.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeKeychain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace orvel {

namespace {

using test::failureOf;
using test::startRead;
using test::startRemove;
using test::startWrite;
using test::textOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Optional;

using test::KeychainSubject;

constexpr auto service = test::keychainService;
constexpr auto account = test::keychainAccount;

class FakeSubject final : public KeychainSubject {
public:
    Keychain& keychain() override { return *keychain_; }
    std::vector<std::string> kept() override {
        const auto item = keychain_->items.find({service, account});
        return item == keychain_->items.end() ? std::vector<std::string>()
                                              : std::vector{item->second};
    }
    void destroyKeychain() override { keychain_.reset(); }

private:
    std::unique_ptr<test::FakeKeychain> keychain_ = std::make_unique<test::FakeKeychain>();
};

struct Kind {
    const char* name;
    std::unique_ptr<KeychainSubject> (*make)();
};

class KeychainTest : public testing::TestWithParam<Kind> {
protected:
    Keychain& keychain() { return subject_->keychain(); }

    std::optional<std::string> read() { return textOf(startRead(keychain(), service, account)); }
    void write(const std::string& value) {
        EXPECT_EQ(failureOf(startWrite(keychain(), service, account, value)), "");
    }
    void remove() { EXPECT_EQ(failureOf(startRemove(keychain(), service, account)), ""); }

    std::unique_ptr<KeychainSubject> subject_ = GetParam().make();
};

} // namespace

INSTANTIATE_TEST_SUITE_P(
    ,
    KeychainTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<KeychainSubject> {
                return std::make_unique<FakeSubject>();
            }},
        Kind{"Real", test::makeRealKeychain}),
    [](const auto& kind) { return kind.param.name; });

TEST_P(KeychainTest, AMissingItemHasNoValue) {
    EXPECT_EQ(read(), std::nullopt);
}

TEST_P(KeychainTest, ReadsWhatWasWritten) {
    write("value");
    EXPECT_THAT(read(), Optional(std::string("value")));
    EXPECT_THAT(subject_->kept(), ElementsAre("value"));
}

TEST_P(KeychainTest, GivesValuesUnchanged) {
    for (const std::string& value :
         {std::string(),
          std::string(" \t\n"),
          std::string(R"({"refreshToken":"a\"b\\c"})"),
          std::string("Þórðarson 王伟 👩‍🚀"),
          std::string(100'000, 'x')}) {
        write(value);
        EXPECT_THAT(read(), Optional(value));
    }
}

TEST_P(KeychainTest, AWriteReplacesTheOldValue) {
    write("first");
    write("second");
    EXPECT_THAT(read(), Optional(std::string("second")));
    EXPECT_THAT(subject_->kept(), ElementsAre("second"));
}

TEST_P(KeychainTest, ARemovedItemIsGone) {
    write("value");
    remove();
    EXPECT_EQ(read(), std::nullopt);
    EXPECT_THAT(subject_->kept(), IsEmpty());
}

TEST_P(KeychainTest, RemovingAMissingItemSucceeds) {
    remove();
}

TEST_P(KeychainTest, DistinguishesServicesAndAccounts) {
    write("value");
    EXPECT_EQ(textOf(startRead(keychain(), service, "other")), std::nullopt);
    EXPECT_EQ(textOf(startRead(keychain(), "app.other", account)), std::nullopt);
    EXPECT_EQ(failureOf(startRemove(keychain(), service, "other")), "");
    EXPECT_THAT(read(), Optional(std::string("value")));
}

TEST_P(KeychainTest, OperationsTakeEffectInCallOrder) {
    const auto before = startRead(keychain(), service, account);
    const auto write = startWrite(keychain(), service, account, "first");
    const auto between = startRead(keychain(), service, account);
    const auto removal = startRemove(keychain(), service, account);
    const auto after = startRead(keychain(), service, account);
    const auto last = startWrite(keychain(), service, account, "last");
    EXPECT_EQ(textOf(before), std::nullopt);
    EXPECT_THAT(textOf(between), Optional(std::string("first")));
    EXPECT_EQ(textOf(after), std::nullopt);
    EXPECT_EQ(failureOf(write), "");
    EXPECT_EQ(failureOf(removal), "");
    EXPECT_EQ(failureOf(last), "");
    EXPECT_THAT(read(), Optional(std::string("last")));
    EXPECT_THAT(subject_->kept(), ElementsAre("last"));
}

TEST_P(KeychainTest, NeverAnswersBeforeTheCallReturns) {
    EXPECT_FALSE(startRead(keychain(), service, account).isDone());
    EXPECT_FALSE(startWrite(keychain(), service, account, "value").isDone());
    EXPECT_FALSE(startRead(keychain(), service, account).isDone());
    const auto removal = startRemove(keychain(), service, account);
    EXPECT_FALSE(removal.isDone());
    EXPECT_EQ(failureOf(removal), "");
}

TEST_P(KeychainTest, DestroyingItDropsTheCompletions) {
    const auto first = startRead(keychain(), service, account);
    const auto write = startWrite(keychain(), service, account, "value");
    const auto second = startRead(keychain(), service, account);
    const auto removal = startRemove(keychain(), service, account);
    subject_->destroyKeychain();
    test::processEvents();
    EXPECT_FALSE(first.isDone() || write.isDone() || second.isDone() || removal.isDone());
}

TEST_P(KeychainTest, ACompletionMayDestroyIt) {
    const auto write = startWrite(keychain(), service, account, "value");
    bool isDestroyed = false;
    keychain().read(service, account, [&](const Keychain::Reading&) {
        subject_->destroyKeychain();
        isDestroyed = true;
    });
    EXPECT_TRUE(test::waitUntil([&] { return isDestroyed; }));
}

} // namespace orvel
