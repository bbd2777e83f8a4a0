// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/TokenUnavailable.h"
#include "tests/OrvelAgent/account/AuthServiceFixture.h"
#include "tests/support/WaitUntil.h"

namespace orvel {

namespace {

using test::runTask;
using test::waitUntil;

constexpr const char* sameAccountElsewhere =
    R"({"refreshToken":"refresh-secret-9","uid":"uid-0","email":"zero@orvel.example"})";
constexpr const char* anotherAccount =
    R"({"refreshToken":"refresh-secret-8","uid":"uid-8","email":"eight@orvel.example"})";

class AuthServiceSessionTest : public AuthServiceTest {
protected:
    AccountSession session() { return runTask(auth_->session()).value(); }

    static std::string tokenOf(const AccountSession& session) {
        return runTask(session.tokenProvider()).value().text();
    }

    /// The agent holds a token that must be refreshed before its next use.
    void startWithOldToken() {
        startSignedIn();
        EXPECT_EQ(currentToken(), "id-secret-2");
        clock_.advance(tavrin::Seconds(3600));
    }
};

} // namespace

TEST_F(AuthServiceSessionTest, ASignedOutUserHasNone) {
    start();
    EXPECT_FALSE(runTask(auth_->session()));
}

TEST_F(AuthServiceSessionTest, ItNamesTheAccountAndProvidesItsTokens) {
    startSignedIn();
    const AccountSession now = session();
    EXPECT_EQ(now.account, "uid-0");
    EXPECT_EQ(tokenOf(now), "id-secret-2");
    EXPECT_FALSE(now.ended.isCancelled());
}

TEST_F(AuthServiceSessionTest, AnUnknownAccountIsAskedFor) {
    keychain_.items[sessionItem] = R"({"refreshToken":"refresh-secret-0"})";
    start();
    EXPECT_EQ(session().account, "uid-1");
    EXPECT_EQ(requestCount(profilePath), 1U);
    EXPECT_EQ(session().account, "uid-1");
    EXPECT_EQ(requestCount(profilePath), 1U);
}

TEST_F(AuthServiceSessionTest, WithoutAnAnswerAboutTheAccountThereIsAnError) {
    keychain_.items[sessionItem] = R"({"refreshToken":"refresh-secret-0"})";
    answerWith(profilePath, 503, "Busy.");
    start();
    EXPECT_THROW(session(), APIError);
}

TEST_F(AuthServiceSessionTest, SigningOutEndsIt) {
    startSignedIn();
    const AccountSession before = session();
    auth_->signOut();
    EXPECT_TRUE(before.ended.isCancelled());
    EXPECT_THROW(tokenOf(before), tavrin::TaskCancelled);
}

TEST_F(AuthServiceSessionTest, ItProvidesNoTokenOfTheNextSignIn) {
    startSignedIn();
    const AccountSession before = session();
    auth_->signOut();
    runTask(auth_->signIn());
    EXPECT_EQ(tokenOf(session()), "id-secret-1");
    EXPECT_THROW(tokenOf(before), tavrin::TaskCancelled);
    clock_.advance(tavrin::Seconds(3600));
    EXPECT_THROW(tokenOf(before), tavrin::TaskCancelled);
    EXPECT_EQ(requestCount(refreshPath), 0U);
}

TEST_F(AuthServiceSessionTest, AnotherSignInEndsIt) {
    startSignedIn();
    const AccountSession before = session();
    runTask(auth_->signIn());
    EXPECT_TRUE(before.ended.isCancelled());
    EXPECT_EQ(session().account, "uid-1");
}

TEST_F(AuthServiceSessionTest, ALateReplyDoesNotEndTheNextSignIn) {
    startSignedIn();
    const AccountSession before = session();
    auth_->signOut();
    runTask(auth_->signIn());
    const int reads = keychain_.reads;
    runTask(before.onSessionExpired());
    EXPECT_EQ(keychain_.reads, reads);
    EXPECT_TRUE(auth_->isSignedIn());
    runTask(session().onSessionExpired());
    EXPECT_FALSE(auth_->isSignedIn());
}

TEST_F(AuthServiceSessionTest, ASignInWhileAnExpiredSessionIsReadIsKept) {
    startSignedIn();
    const AccountSession before = session();
    keychain_.lock();
    auto expired = before.onSessionExpired();
    auth_->signOut();
    auto signingIn = auth_->signIn();
    // The profile is stored while the first read still waits.
    ASSERT_TRUE(waitUntil([this] { return keychain_.waitingReads() == 2; }));
    keychain_.unlockLast();
    runTask(std::move(signingIn));
    keychain_.unlock();
    runTask(std::move(expired));
    EXPECT_TRUE(auth_->isSignedIn());
}

TEST_F(AuthServiceSessionTest, FieldsStoredElsewhereDuringARefreshAreKept) {
    startWithOldToken();
    const AccountSession before = session();
    urlSession_.setHandler([this](const URLRequest&) {
        keychain_.items[sessionItem] =
            R"({"refreshToken":"refresh-secret-9","uid":"uid-0","handle":"new"})";
        return URLResponse{200, refreshReply};
    });
    EXPECT_EQ(tokenOf(before), "id-secret-2");
    EXPECT_EQ(
        keychain_.items[sessionItem],
        R"({"refreshToken":"refresh-secret-2","uid":"uid-0","handle":"new"})");
}

TEST_F(AuthServiceSessionTest, AProfileDoesNotReplaceASessionThatCannotBeRead) {
    keychain_.items[sessionItem] = R"({"refreshToken":"refresh-secret-0"})";
    start();
    urlSession_.setHandler([this](const URLRequest& request) {
        if (request.url.find(refreshPath) != std::string::npos) {
            return URLResponse{200, refreshReply};
        }
        keychain_.readError.emplace("QKeychain", 1, "locked");
        return URLResponse{200, profileReply};
    });
    EXPECT_EQ(session().account, "uid-1");
    EXPECT_EQ(keychain_.items[sessionItem], R"({"refreshToken":"refresh-secret-2"})");
}

TEST_F(AuthServiceSessionTest, ATokenThatCannotBeRefreshedNowIsAPassingFailure) {
    startSignedIn();
    const AccountSession now = session();
    answerWith(refreshPath, 503, "");
    try {
        tokenOf(now);
        FAIL();
    } catch (const TokenUnavailable& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("HTTP 503"));
    }
    EXPECT_TRUE(auth_->isSignedIn());
    answerWith(refreshPath, 200, refreshReply);
    EXPECT_EQ(tokenOf(now), "id-secret-2");
}

TEST_F(AuthServiceSessionTest, ASignOutByAnotherProcessIsNoticedBeforeTheNextScan) {
    startSignedIn();
    const AccountSession before = session();
    keychain_.items.erase(sessionItem);
    EXPECT_FALSE(runTask(auth_->session()));
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_TRUE(before.ended.isCancelled());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
}

TEST_F(AuthServiceSessionTest, ASignOutByAnotherProcessIsNoticedWhenTheTokenIsRefreshed) {
    startWithOldToken();
    const AccountSession before = session();
    keychain_.items.erase(sessionItem);
    EXPECT_THROW(tokenOf(before), tavrin::TaskCancelled);
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_EQ(requestCount(refreshPath), 1U);
}

TEST_F(AuthServiceSessionTest, AnotherAccountSignedInElsewhereGetsNoTokenOfTheRunningScan) {
    startWithOldToken();
    const AccountSession before = session();
    keychain_.items[sessionItem] = anotherAccount;
    EXPECT_THROW(tokenOf(before), tavrin::TaskCancelled);
    EXPECT_TRUE(before.ended.isCancelled());
    EXPECT_EQ(requestCount(refreshPath), 1U);
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), "eight@orvel.example");
    EXPECT_EQ(session().account, "uid-8");
    EXPECT_EQ(tokenOf(session()), "id-secret-2");
    EXPECT_THAT(lastRequest(refreshPath).body.value(), testing::HasSubstr("refresh-secret-8"));
}

TEST_F(AuthServiceSessionTest, TheSameAccountRefreshedElsewhereGoesOn) {
    startWithOldToken();
    const AccountSession before = session();
    keychain_.items[sessionItem] = sameAccountElsewhere;
    EXPECT_EQ(tokenOf(before), "id-secret-2");
    EXPECT_THAT(lastRequest(refreshPath).body.value(), testing::HasSubstr("refresh-secret-9"));
    EXPECT_FALSE(before.ended.isCancelled());
}

TEST_F(AuthServiceSessionTest, ASignOutByAnotherProcessDuringARefreshIsNotUndone) {
    startWithOldToken();
    const AccountSession before = session();
    urlSession_.setHandler([this](const URLRequest&) {
        keychain_.items.erase(sessionItem);
        return URLResponse{200, refreshReply};
    });
    EXPECT_THROW(tokenOf(before), tavrin::TaskCancelled);
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_FALSE(keychain_.items.contains(sessionItem));
}

TEST_F(AuthServiceSessionTest, AnAccountSignedInElsewhereDuringARefreshIsNotOverwritten) {
    startWithOldToken();
    const AccountSession before = session();
    urlSession_.setHandler([this](const URLRequest&) {
        keychain_.items[sessionItem] = anotherAccount;
        return URLResponse{200, refreshReply};
    });
    EXPECT_THROW(tokenOf(before), tavrin::TaskCancelled);
    EXPECT_EQ(auth_->accountEmail(), "eight@orvel.example");
    EXPECT_EQ(keychain_.items[sessionItem], anotherAccount);
}

TEST_F(AuthServiceSessionTest, AKeychainThatCannotBeReadEndsNoSession) {
    startSignedIn();
    keychain_.readError.emplace("QKeychain", 1, "locked");
    EXPECT_FALSE(session().ended.isCancelled());
    EXPECT_TRUE(auth_->isSignedIn());
}

TEST_F(AuthServiceSessionTest, AKeychainThatStaysLockedIsReadAgainOnlyForAToken) {
    startSignedIn();
    EXPECT_EQ(currentToken(), "id-secret-2");
    keychain_.readError.emplace("QKeychain", 1, "locked");
    session();
    const int reads = keychain_.reads;
    session();
    EXPECT_EQ(keychain_.reads, reads);
    clock_.advance(tavrin::Seconds(3600));
    try {
        tokenOf(session());
        FAIL();
    } catch (const TokenUnavailable& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("The keychain could not be read."));
    }
    EXPECT_EQ(keychain_.reads, reads + 1);
    keychain_.readError.reset();
    EXPECT_EQ(tokenOf(session()), "id-secret-2");
    keychain_.items.clear();
    EXPECT_FALSE(runTask(auth_->session()));
}

TEST_F(AuthServiceSessionTest, ASessionThatCouldNotBeStoredIsStillThisProcesssOwn) {
    keychain_.writeError.emplace("QKeychain", 1, "locked");
    start();
    runTask(auth_->signIn());
    EXPECT_EQ(session().account, "uid-1");
    EXPECT_TRUE(auth_->isSignedIn());
}

} // namespace orvel
