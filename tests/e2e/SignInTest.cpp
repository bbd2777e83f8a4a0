// SPDX-License-Identifier: Apache-2.0
//
// Tests the account with the real service over HTTPS. Only the browser, the keychain and the clock
// are fakes.
#include "OrvelAgent/account/AuthService.h"
#include "OrvelAgent/account/SignInVerifier.h"
#include "OrvelAgent/network/QueryItems.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "service/LocalService.h"
#include "tests/platform/RealBundle.h"
#include "tests/platform/RealURLSession.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/FakeKeychain.h"
#include "tests/support/fakes/FakeWebAuthenticationSession.h"
#include "tests/support/fakes/FakeWorkspace.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using service::LocalService;
using test::runTask;
using Browser = test::FakeWebAuthenticationSession;

constexpr const char* refreshPath = "/identity/v1/token";
constexpr const char* profilePath = "/api/v1/profile";

class SignInTest : public testing::Test {
protected:
    SignInTest() {
        LocalService::Options options;
        options.store = directory_ / "records.sqlite";
        options.certificates = directory_ / "certificates";
        options.tokens = {"an operator's token"};
        options.capture = directory_ / "traffic";
        service_ = std::make_unique<LocalService>(std::move(options));
        service_->start();
        service_->writeBundle(directory_ / "bundle");
        bundle_ = test::makeRealBundle(directory_ / "bundle");
        urlSession_ = test::makeRealURLSession({service_->caFile()});
        browser_.user = [this](const Browser::Page& page) {
            return Browser::Outcome("orvelagent://callback?code=" + choose(page, account_.uid));
        };
        restart();
    }

    /// Simulates a restart of the agent: only the keychain stays.
    void restart() {
        auth_.reset();
        const AuthService::Dependencies dependencies{
            *urlSession_, worker_, keychain_, browser_, workspace_, clock_, log_};
        auth_ = std::make_unique<AuthService>(dependencies, Configuration(*bundle_));
        runTask(auth_->restored());
    }

    void signIn() {
        runTask(auth_->signIn());
        ASSERT_TRUE(auth_->isSignedIn()) << auth_->lastError().value_or("");
    }

    /// Does what the page does when the user chooses an account: creates a code for its challenge.
    std::string choose(const Browser::Page& page, const std::string& uid) {
        const std::vector<QueryItem> items = queryItems(page.url).value();
        for (const QueryItem& item : items) {
            if (item.name == "challenge") {
                return service_->mintCode(item.value.value(), uid);
            }
        }
        ADD_FAILURE() << "no challenge";
        return {};
    }

    /// Whether the service accepts the agent's current token.
    bool isServed() {
        const Configuration configuration(*bundle_);
        const APIClient api(
            *urlSession_,
            worker_,
            configuration,
            configuration.apiBaseURL(),
            {},
            IngestClient::requestTimeout);
        const IngestClient ingest(api, configuration.shortVersion());
        const std::optional<AccountSession> session = runTask(auth_->session());
        if (!session) {
            return false;
        }
        try {
            runTask(ingest.authorizedBy(*session).fetchKnownHandleHints());
            return true;
        } catch (const APIError& error) {
            EXPECT_EQ(error.status(), 401);
            return false;
        }
    }

    std::optional<std::string> currentToken() {
        const std::optional<tavrin::Secret> token = runTask(auth_->currentToken());
        return token ? std::optional(token->text()) : std::nullopt;
    }

    test::TemporaryDirectory directory_;
    const service::Account account_ = service::sampleAccounts().front();
    std::unique_ptr<LocalService> service_;
    std::unique_ptr<Bundle> bundle_;
    std::unique_ptr<URLSession> urlSession_;
    Worker worker_;
    test::FakeKeychain keychain_;
    Browser browser_;
    test::FakeWorkspace workspace_;
    test::ManualClock clock_;
    test::RecordingLogStore log_;
    std::unique_ptr<AuthService> auth_;
};

} // namespace

TEST_F(SignInTest, TheChosenAccountIsSignedIn) {
    signIn();
    EXPECT_EQ(auth_->accountEmail(), account_.email);
    EXPECT_EQ(auth_->accountHandle(), account_.handle);
    EXPECT_EQ(service_->requestCount(profilePath), 1U);
    EXPECT_TRUE(isServed());
}

TEST_F(SignInTest, TheSessionSurvivesARestartOfAgentAndService) {
    signIn();
    restart();
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), account_.email);
    service_->stop();
    service_->start();
    EXPECT_TRUE(isServed());
    EXPECT_EQ(service_->requestCount(refreshPath), 1U);
}

TEST_F(SignInTest, TwoCallsShortlyBeforeTheTokenExpiresRefreshItOnce) {
    signIn();
    clock_.advance(std::chrono::hours(1) - std::chrono::seconds(30));
    auto first = auth_->currentToken();
    auto second = auth_->currentToken();
    const std::optional<tavrin::Secret> one = runTask(std::move(first));
    const std::optional<tavrin::Secret> other = runTask(std::move(second));
    ASSERT_TRUE(one);
    EXPECT_EQ(one, other);
    EXPECT_EQ(service_->requestCount(refreshPath), 1U);
}

TEST_F(SignInTest, ARevokedSessionEndsAtTheNextRefresh) {
    signIn();
    EXPECT_EQ(service_->revokeSessions(account_.uid, "USER_DISABLED"), 1U);
    EXPECT_TRUE(isServed());
    clock_.advance(std::chrono::hours(1));
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_TRUE(keychain_.items.empty());
}

TEST_F(SignInTest, ASessionThatTheServiceReportsAsExpiredEndsAtOnce) {
    signIn();
    service_->expireToken(currentToken().value());
    EXPECT_FALSE(isServed());
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_TRUE(keychain_.items.empty());
}

TEST_F(SignInTest, TemporaryFailuresKeepTheSession) {
    signIn();
    clock_.advance(std::chrono::hours(1));
    service_->script(service::Fault::answer(503, ""));
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_TRUE(auth_->isSignedIn());
    service_->stop();
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_TRUE(auth_->isSignedIn());
    service_->start();
    EXPECT_TRUE(isServed());
}

TEST_F(SignInTest, ALostReplyKeepsTheOldRefreshTokenValid) {
    signIn();
    clock_.advance(std::chrono::hours(1));
    service_->script(service::Fault::acceptThenReset());
    EXPECT_EQ(currentToken(), std::nullopt);
    EXPECT_TRUE(auth_->isSignedIn());
    EXPECT_TRUE(isServed());
}

TEST_F(SignInTest, ACodeOfAnotherSignInIsRefused) {
    std::string stolen;
    browser_.user = [&](const Browser::Page& page) {
        stolen = choose(page, account_.uid);
        return Browser::Outcome(Browser::Cancelled());
    };
    runTask(auth_->signIn());
    ASSERT_FALSE(stolen.empty());
    browser_.user = [&](const Browser::Page&) {
        return Browser::Outcome("orvelagent://callback?code=" + stolen);
    };
    runTask(auth_->signIn());
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_TRUE(auth_->lastError());
    EXPECT_TRUE(keychain_.items.empty());
}

// An attacker signs in with a challenge of its own, and makes the browser of the user deliver the
// code while a sign-in waits.
TEST_F(SignInTest, ACodeOfAnotherAccountSignsNoOneIn) {
    const service::Account other = service::sampleAccounts().at(1);
    const std::string challenge = SignInVerifier::challenge(SignInVerifier::makeVerifier());
    browser_.isOpenToAnyPage = true;
    browser_.user = [&](const Browser::Page&) {
        return Browser::Outcome(
            "orvelagent://callback?code=" + service_->mintCode(challenge, other.uid));
    };
    runTask(auth_->signIn());
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_EQ(auth_->accountEmail(), std::nullopt);
    EXPECT_TRUE(keychain_.items.empty());
    EXPECT_EQ(service_->requestCount(profilePath), 0U);
}

TEST_F(SignInTest, ASignOutLastsAfterARestart) {
    signIn();
    auth_->signOut();
    EXPECT_FALSE(isServed());
    restart();
    EXPECT_FALSE(auth_->isSignedIn());
    EXPECT_FALSE(isServed());
    EXPECT_EQ(service_->requestCount(refreshPath), 0U);
}

TEST_F(SignInTest, NeitherTheLogNorTheTrafficContainsASecret) {
    signIn();
    clock_.advance(std::chrono::hours(1));
    ASSERT_TRUE(currentToken());
    std::string written;
    for (const auto& line : log_.lines()) {
        written += line.message;
    }
    std::ifstream traffic(directory_ / "traffic", std::ios::binary);
    written.append(std::istreambuf_iterator<char>(traffic), {});
    EXPECT_NE(written.find("sign-in: succeeded"), std::string::npos);
    EXPECT_NE(written.find(refreshPath), std::string::npos);
    for (const char* kind : {"orvel-id-", "orvel-refresh-", "orvel-custom-", "orvel-code-"}) {
        EXPECT_EQ(written.find(kind), std::string::npos) << kind;
    }
    // The search looks for this prefix.
    EXPECT_EQ(currentToken()->rfind("orvel-id-", 0), 0U);
}

} // namespace orvel
