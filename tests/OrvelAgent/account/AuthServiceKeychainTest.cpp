// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::runTask;
using testing::IsEmpty;

} // namespace

TEST_F(AuthServiceTest, WithoutAKeychainTheSessionIsKeptInMemory) {
    keychain_.writeError = tavrin::PlatformError("Keychain", 1, "There is no keychain.");
    start();
    runTask(auth_->signIn());
    EXPECT_TRUE(auth_->isSignedIn());
    clock_.advance(tavrin::Seconds(3600));
    EXPECT_EQ(currentToken(), "id-secret-2");
    const auto failure = runTask(auth_->stored());
    ASSERT_TRUE(failure);
    EXPECT_STREQ(failure->what(), "There is no keychain.");
    EXPECT_THAT(keychain_.items, IsEmpty());
}

TEST_F(AuthServiceTest, ASessionThatCannotBeRemovedIsReportedEvenIfOtherItemsCan) {
    startSignedIn();
    keychain_.errorsByAccount.emplace(
        "session", tavrin::PlatformError("Keychain", 2, "The keychain is locked."));
    auth_->signOut();
    const auto failure = runTask(auth_->stored());
    ASSERT_TRUE(failure);
    EXPECT_STREQ(failure->what(), "The keychain is locked.");
    keychain_.errorsByAccount.clear();
    auth_->signOut();
    EXPECT_EQ(runTask(auth_->stored()), std::nullopt);
}

TEST_F(AuthServiceTest, WaitingForTheKeychainCanBeCancelled) {
    keychain_.lock();
    begin();
    tavrin::CancellationSource source;
    auto restored = auth_->restored(source.token());
    auth_->signOut();
    begin();
    auto waiting = auth_->restored(source.token());
    auto stored = auth_->stored(source.token());
    source.cancel();
    runTask(std::move(restored));
    EXPECT_THROW(runTask(std::move(waiting)), tavrin::TaskCancelled);
    EXPECT_EQ(runTask(std::move(stored)), std::nullopt);
    EXPECT_THROW(static_cast<void>(runTask(auth_->stored(source.token()))), tavrin::TaskCancelled);
}

TEST_F(AuthServiceTest, StoredWaitsForEveryChange) {
    start();
    EXPECT_EQ(runTask(auth_->stored()), std::nullopt);
    runTask(auth_->signIn());
    EXPECT_EQ(runTask(auth_->stored()), std::nullopt);
    EXPECT_EQ(keychain_.items.size(), 1U);
}

} // namespace orvel
