// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::processEvents;
using test::runTask;
using testing::IsEmpty;

} // namespace

TEST_F(AuthServiceTest, WithoutAStoredSessionItStartsSignedOut) {
    start();
    expectSignedOut();
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, AStoredSessionIsRestored) {
    startSignedIn();
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "zero@orvel.example");
    EXPECT_EQ(auth_->accountHandle(), "zero");
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, AStoredSessionNeedsOnlyTheRefreshToken) {
    keychain_.items[sessionItem] = R"({"refreshToken":"r"})";
    start();
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
    EXPECT_EQ(auth_->accountHandle(), std::nullopt);
}

TEST_F(AuthServiceTest, AStoredSessionWithAnEmptyRefreshTokenIsSignedOutAndSendsNothing) {
    keychain_.items[sessionItem] = R"({"refreshToken":"","email":"one@orvel.example"})";
    start();
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "one@orvel.example");
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_THAT(urlSession_.requests(), IsEmpty());
}

TEST_F(AuthServiceTest, AStoredSessionThatCannotBeDecodedIsIgnored) {
    for (const char* text : {"", "{", "[]", "{}", R"({"refreshToken":7})", R"({"uid":"u"})"}) {
        keychain_.items[sessionItem] = text;
        start();
        EXPECT_FALSE(auth_->isSignedIn()) << text;
        EXPECT_EQ(currentToken(), std::nullopt) << text;
    }
}

TEST_F(AuthServiceTest, ALockedKeychainDoesNotBlockTheStart) {
    keychain_.items[sessionItem] = storedSession;
    keychain_.lock();
    begin();
    auto restored = auth_->restored();
    processEvents();
    EXPECT_FALSE(restored.isReady());
    EXPECT_FALSE(auth_->isSignedIn());
    int changes = 0;
    QObject::connect(auth_.get(), &AuthService::changed, auth_.get(), [&changes] { ++changes; });
    keychain_.unlock();
    runTask(std::move(restored));
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(changes, 1);
}

TEST_F(AuthServiceTest, ASignInWhileTheKeychainIsLockedIsNotUndoneByTheOldSession) {
    keychain_.items[sessionItem] = storedSession;
    keychain_.lock();
    begin();
    keychain_.unlock();
    keychain_.lock();
    auto restored = auth_->restored();
    auto signIn = auth_->signIn();
    processEvents();
    keychain_.unlock();
    runTask(std::move(signIn));
    runTask(std::move(restored));
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "one@orvel.example");
}

TEST_F(AuthServiceTest, ASignOutWhileTheKeychainIsLockedIsNotUndoneByTheOldSession) {
    keychain_.items[sessionItem] = storedSession;
    keychain_.lock();
    begin();
    auth_->signOut();
    keychain_.unlock();
    runTask(auth_->restored());
    processEvents();
    expectSignedOut();
}

} // namespace orvel
