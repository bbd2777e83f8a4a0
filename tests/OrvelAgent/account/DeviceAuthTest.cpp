// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/DeviceAuth.h"

#include "OrvelAgent/account/AuthError.h"
#include "OrvelAgent/account/SignInVerifier.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/network/QueryItems.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/FakeWebAuthenticationSession.h"

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using test::runTask;
using Session = WebAuthenticationSession;
using Page = test::FakeWebAuthenticationSession::Page;

const std::string goodReply = R"({"ok":true,"data":{"customToken":"custom-1","uid":"u1"}})";

QCoro::Task<std::optional<tavrin::Secret>> noToken() {
    co_return std::nullopt;
}

/// A browser that reports a failed start, and later a callback.
class TwoEndedSession final : public Session {
public:
    std::unique_ptr<Attempt>
    start(std::string, std::string, Screen, std::function<void(Outcome)> completion) override {
        QMetaObject::invokeMethod(
            &callbackContext_,
            [completion = std::move(completion)] {
                completion(NotStarted());
                completion("orvelagent://callback?code=late");
            },
            Qt::QueuedConnection);
        return std::make_unique<NoAttempt>();
    }

private:
    struct NoAttempt final : Attempt {
        void cancel() override {}
    };

    QObject callbackContext_;
};

class DeviceAuthTest : public testing::Test {
protected:
    DeviceAuthTest() {
        bundle_.setInfo("WEB_HOST", "web.test.example");
        bundle_.setInfo("CFBundleShortVersionString", "1.2.3");
    }

    [[nodiscard]] DeviceAuth auth() { return {browser_, Configuration(bundle_)}; }

    [[nodiscard]] APIClient api() {
        return {
            network_,
            worker_,
            Configuration(bundle_),
            "https://api.test.example",
            noToken,
            tavrin::Seconds(60)};
    }

    QCoro::Task<tavrin::Secret> authorize(tavrin::CancellationToken cancellation = {}) {
        return auth().authorize(api(), std::move(cancellation));
    }

    /// The page redirects to this URL at once.
    void redirectTo(std::string url) {
        browser_.user = [url = std::move(url)](const Page&) {
            return std::optional<Session::Outcome>(url);
        };
    }

    static AuthError errorOf(QCoro::Task<tavrin::Secret> task) {
        try {
            static_cast<void>(runTask(std::move(task)));
        } catch (const AuthError& error) {
            return error;
        }
        ADD_FAILURE() << "no AuthError";
        return AuthError("");
    }

    AuthError errorAfter(Session::Outcome outcome) {
        browser_.user = [outcome = std::move(outcome)](const Page&) {
            return std::optional(outcome);
        };
        return errorOf(authorize());
    }

    /// The error for a callback that is refused before the exchange.
    AuthError errorAfterCallback(std::string url) {
        const AuthError error = errorAfter(std::move(url));
        EXPECT_TRUE(network_.requests().empty());
        return error;
    }

    /// The code that is sent after this callback.
    std::string codeAfterCallback(std::string url) {
        redirectTo(std::move(url));
        network_.enqueue(200, goodReply);
        static_cast<void>(runTask(authorize()));
        const boost::json::value body = boost::json::parse(network_.requests().back().body.value());
        return boost::json::value_to<std::string>(body.at("code"));
    }

    std::vector<QueryItem> itemsOfThePage() {
        return queryItems(browser_.pages().at(0).url).value();
    }

    test::FakeBundle bundle_;
    test::FakeURLSession network_;
    test::FakeWebAuthenticationSession browser_;
    Worker worker_;
};

} // namespace

TEST(DeviceAuthProofTest, TheChallengeMatchesTheExampleOfTheStandard) {
    EXPECT_EQ(
        SignInVerifier::challenge("dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk"),
        "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
}

TEST(DeviceAuthProofTest, AVerifierIs43CharactersOfBase64URL) {
    std::set<std::string> verifiers;
    for (int i = 0; i < 100; ++i) {
        const std::string verifier = SignInVerifier::makeVerifier();
        EXPECT_EQ(verifier.size(), 43U);
        EXPECT_EQ(verifier.size(), SignInVerifier::length);
        EXPECT_EQ(
            verifier.find_first_not_of(
                "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_"),
            std::string::npos)
            << verifier;
        EXPECT_EQ(SignInVerifier::challenge(verifier), SignInVerifier::challenge(verifier));
        verifiers.insert(verifier);
    }
    EXPECT_EQ(verifiers.size(), 100U);
}

TEST_F(DeviceAuthTest, ACodeIsExchangedForACustomToken) {
    redirectTo("orvelagent://callback?code=abc");
    network_.enqueue(200, goodReply);
    EXPECT_EQ(runTask(authorize()).text(), "custom-1");
    ASSERT_EQ(network_.requests().size(), 1U);
    const URLRequest& request = network_.requests().front();
    EXPECT_EQ(request.url, "https://api.test.example/api/v1/auth/device/token");
    EXPECT_EQ(request.method, "POST");
    for (const auto& [name, value] : request.headers) {
        EXPECT_NE(name, "Authorization");
    }
    const boost::json::value body = boost::json::parse(request.body.value());
    EXPECT_EQ(body.as_object().size(), 2U);
    EXPECT_EQ(body.at("code"), "abc");
    EXPECT_TRUE(body.at("codeVerifier").is_string());
}

TEST_F(DeviceAuthTest, ThePageGetsTheChallengeOfTheExchangedVerifier) {
    redirectTo("orvelagent://callback?code=abc");
    network_.enqueue(200, goodReply);
    static_cast<void>(runTask(authorize()));
    const boost::json::value body = boost::json::parse(network_.requests().front().body.value());
    const auto verifier = boost::json::value_to<std::string>(body.at("codeVerifier"));
    const std::string challenge = SignInVerifier::challenge(verifier);
    ASSERT_EQ(browser_.pages().size(), 1U);
    EXPECT_EQ(
        browser_.pages().front().url,
        "https://web.test.example/link?challenge=" + challenge + "&client=mac&v=1.2.3");
    EXPECT_EQ(browser_.pages().front().callbackScheme, "orvelagent");
}

TEST_F(DeviceAuthTest, EveryAttemptHasItsOwnVerifier) {
    errorAfter(Session::Cancelled());
    errorAfter(Session::Cancelled());
    EXPECT_NE(browser_.pages().at(0).url, browser_.pages().at(1).url);
}

TEST_F(DeviceAuthTest, TheVersionInThePageIsPercentEncoded) {
    bundle_.setInfo("CFBundleShortVersionString", "1.0 beta&x=1");
    errorAfter(Session::Cancelled());
    const std::vector<QueryItem> items = itemsOfThePage();
    ASSERT_EQ(items.size(), 3U);
    EXPECT_EQ(items.at(2), (QueryItem{"v", "1.0 beta&x=1"}));
}

TEST_F(DeviceAuthTest, AnInvalidHostOpensNoPage) {
    for (const char* host : {"web host", "[::1", "web.test.example:port", "%zz"}) {
        bundle_.setInfo("WEB_HOST", host);
        EXPECT_EQ(errorOf(authorize()).message(), "Could not build the sign-in URL.") << host;
    }
    EXPECT_TRUE(browser_.pages().empty());
}

TEST_F(DeviceAuthTest, EveryOtherOutcomeHasItsText) {
    const std::vector<std::pair<Session::Outcome, std::string>> table = {
        {Session::NotStarted(), "Could not open the sign-in window."},
        {Session::Cancelled(), "Sign-in was cancelled."},
        {Session::NoResponse(), "Sign-in ended without a response."},
        {Session::Failed{"The desktop is on fire."}, "The desktop is on fire."}};
    for (const auto& [outcome, text] : table) {
        const AuthError error = errorAfter(outcome);
        EXPECT_EQ(error.message(), text);
        EXPECT_EQ(error.failure(), std::nullopt);
    }
    EXPECT_TRUE(network_.requests().empty());
}

TEST_F(DeviceAuthTest, ACallbackThatIsNoURLIsUnreadable) {
    for (const char* url :
         {"", "not a url?code=abc", "orvelagent://callback?code=a b", "orvelagent://?code=%zz"}) {
        EXPECT_EQ(errorAfterCallback(url).message(), "Sign-in returned an unreadable response.")
            << url;
    }
}

TEST_F(DeviceAuthTest, ACallbackWithoutACodeIsRefused) {
    for (const char* query : {"", "?", "?code", "?code=", "?state=abc", "?CODE=abc", "#code=abc"}) {
        EXPECT_EQ(
            errorAfterCallback(std::string("orvelagent://callback") + query).message(),
            "Sign-in did not return an authorization code.")
            << query;
    }
}

TEST_F(DeviceAuthTest, TheSitesErrorIsShownUnchanged) {
    for (const auto& [value, text] : std::vector<std::pair<std::string, std::string>>{
             {"access_denied", "access_denied"},
             {"Try%20again+later%21", "Try again+later!"},
             {"%20spaced%0A", " spaced\n"},
             {"", ""}}) {
        const AuthError error = errorAfterCallback("orvelagent://callback?error=" + value);
        EXPECT_EQ(error.message(), text);
        EXPECT_EQ(error.failure(), tavrin::SignInFailure(tavrin::SignInFailure::Other{text}));
    }
}

TEST_F(DeviceAuthTest, AMissingAccountHasItsOwnError) {
    for (const char* value : {"no_account", "%20no_account%0A"}) {
        const AuthError error =
            errorAfterCallback(std::string("orvelagent://callback?error=") + value);
        EXPECT_EQ(error.message(), "That sign-in has no Orvel Agent account.");
        EXPECT_EQ(error.failure(), tavrin::SignInFailure(tavrin::SignInFailure::NoAccount()));
    }
}

TEST_F(DeviceAuthTest, AnErrorTakesPrecedenceOverACode) {
    EXPECT_EQ(
        errorAfterCallback("orvelagent://callback?code=abc&error=denied").message(), "denied");
    EXPECT_EQ(
        errorAfterCallback("orvelagent://callback?error=denied&code=abc").message(), "denied");
    EXPECT_EQ(errorAfterCallback("orvelagent://callback?error&error=b&error=c").message(), "b");
}

TEST_F(DeviceAuthTest, AnErrorWithoutAValueIsIgnored) {
    EXPECT_EQ(codeAfterCallback("orvelagent://callback?error&code=abc"), "abc");
    EXPECT_EQ(codeAfterCallback("orvelagent://callback?Error=x&code=abc"), "abc");
}

TEST_F(DeviceAuthTest, TheCodeIsPercentDecodedAndKeepsItsPlus) {
    EXPECT_EQ(codeAfterCallback("orvelagent://callback?code=a%2Fb%3Dc+d%2B%C3%A4"), "a/b=c+d+ä");
    EXPECT_EQ(codeAfterCallback("orvelagent:callback?x=1&code=a=b&y=2"), "a=b");
}

TEST_F(DeviceAuthTest, OnlyTheFirstCodeIsUsed) {
    EXPECT_EQ(codeAfterCallback("orvelagent://callback?code=first&code=second"), "first");
    EXPECT_EQ(
        errorAfter("orvelagent://callback?code=&code=second").message(),
        "Sign-in did not return an authorization code.");
}

TEST_F(DeviceAuthTest, AHugeCallbackIsRead) {
    const std::string code(1 << 20, 'c');
    EXPECT_EQ(codeAfterCallback("orvelagent://callback?code=" + code), code);
}

TEST_F(DeviceAuthTest, ARefusedExchangeIsTheServicesError) {
    redirectTo("orvelagent://callback?code=abc");
    network_.enqueue(400, R"({"ok":false,"error":"That code was used.","code":"invalid_code"})");
    try {
        static_cast<void>(runTask(authorize()));
        FAIL() << "no error";
    } catch (const APIError& error) {
        EXPECT_EQ(error.status(), 400);
        EXPECT_STREQ(error.what(), "That code was used.");
    }
}

TEST_F(DeviceAuthTest, AnExchangeNeedsBothKeys) {
    for (const char* data : {R"({"customToken":"x"})", R"({"uid":"u1"})", R"({})"}) {
        redirectTo("orvelagent://callback?code=abc");
        network_.enqueue(200, std::string(R"({"ok":true,"data":)") + data + "}");
        EXPECT_THROW(static_cast<void>(runTask(authorize())), APIError) << data;
    }
}

TEST_F(DeviceAuthTest, AMalformedSuccessIsNotShown) {
    redirectTo("orvelagent://callback?code=abc");
    network_.enqueue(200, R"({"ok":true,"data":{"customToken":"custom-secret"}})");
    try {
        static_cast<void>(runTask(authorize()));
        FAIL();
    } catch (const APIError& error) {
        EXPECT_EQ(error.status(), 200);
        EXPECT_STREQ(error.what(), "Response had no data.");
    }
}

TEST_F(DeviceAuthTest, ARefusalWithASuccessStatusIsTheServicesError) {
    redirectTo("orvelagent://callback?code=abc");
    network_.enqueue(200, R"({"ok":false,"error":"nope"})");
    try {
        static_cast<void>(runTask(authorize()));
        FAIL();
    } catch (const APIError& error) {
        EXPECT_STREQ(error.what(), "nope");
    }
}

TEST_F(DeviceAuthTest, ATransportErrorIsRethrownUnchanged) {
    redirectTo("orvelagent://callback?code=abc");
    network_.enqueue(tavrin::URLErrorCode::TimedOut);
    EXPECT_THROW(static_cast<void>(runTask(authorize())), tavrin::URLError);
}

TEST_F(DeviceAuthTest, CancellingEndsTheAttempt) {
    tavrin::CancellationSource source;
    auto task = authorize(source.token());
    EXPECT_TRUE(browser_.isWaiting());
    source.cancel();
    EXPECT_FALSE(browser_.isWaiting());
    EXPECT_THROW(static_cast<void>(runTask(std::move(task))), tavrin::TaskCancelled);
}

TEST_F(DeviceAuthTest, ASignInCancelledBeforeItStartsOpensNoPage) {
    tavrin::CancellationSource source;
    source.cancel();
    EXPECT_THROW(static_cast<void>(runTask(authorize(source.token()))), tavrin::TaskCancelled);
    EXPECT_TRUE(browser_.pages().empty());
}

TEST_F(DeviceAuthTest, ASignInCancelledBeforeItsCallbackArrivesIsNotExchanged) {
    tavrin::CancellationSource source;
    auto task = authorize(source.token());
    browser_.finish("orvelagent://callback?code=abc");
    source.cancel();
    EXPECT_THROW(static_cast<void>(runTask(std::move(task))), tavrin::TaskCancelled);
    EXPECT_TRUE(network_.requests().empty());
}

TEST_F(DeviceAuthTest, CancellingDuringTheExchangeEndsIt) {
    redirectTo("orvelagent://callback?code=abc");
    network_.enqueue(std::nullopt);
    tavrin::CancellationSource source;
    auto task = authorize(source.token());
    while (network_.inFlight() == 0) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    source.cancel();
    EXPECT_THROW(static_cast<void>(runTask(std::move(task))), tavrin::TaskCancelled);
}

TEST_F(DeviceAuthTest, ASecondSignInReplacesTheFirst) {
    auto first = authorize();
    auto second = authorize();
    EXPECT_EQ(errorOf(std::move(first)).message(), "Sign-in was cancelled.");
    network_.enqueue(200, goodReply);
    browser_.finish("orvelagent://callback?code=abc");
    EXPECT_EQ(runTask(std::move(second)).text(), "custom-1");
}

TEST_F(DeviceAuthTest, AStartFailureFollowedByALateCallbackIsOneFailure) {
    TwoEndedSession browser;
    const DeviceAuth auth(browser, Configuration(bundle_));
    EXPECT_EQ(errorOf(auth.authorize(api())).message(), "Could not open the sign-in window.");
    test::processEvents();
    EXPECT_TRUE(network_.requests().empty());
}

TEST_F(DeviceAuthTest, ItMayBeDestroyedWhileTheBrowserIsOpen) {
    auto task = [this] {
        const DeviceAuth shortLived = auth();
        return shortLived.authorize(api());
    }();
    network_.enqueue(200, goodReply);
    browser_.finish("orvelagent://callback?code=abc");
    EXPECT_EQ(runTask(std::move(task)).text(), "custom-1");
}

TEST_F(DeviceAuthTest, PresentReturnsTheCallbackUnchanged) {
    redirectTo("orvelagent://callback?code=a%2Fb#x");
    EXPECT_EQ(
        runTask(auth().present("https://web.test.example/link")),
        "orvelagent://callback?code=a%2Fb#x");
    EXPECT_EQ(browser_.pages().front().url, "https://web.test.example/link");
}

TEST_F(DeviceAuthTest, AnExchangeErrorThatRepeatsTheRequestIsNotShown) {
    for (const char* key : {"code", "codeVerifier"}) {
        redirectTo("orvelagent://callback?code=4%2F0AY0e-g7-code");
        network_.setHandler([key](const URLRequest& request) {
            const boost::json::value body = boost::json::parse(request.body.value());
            return URLResponse{
                502, "<p>" + boost::json::value_to<std::string>(body.at(key)) + "</p>"};
        });
        try {
            static_cast<void>(runTask(authorize()));
            FAIL();
        } catch (const APIError& error) {
            EXPECT_STREQ(error.what(), "HTTP 502") << key;
        }
    }
}

TEST_F(DeviceAuthTest, TheErrorOfACallbackIsCutAndCleaned) {
    const AuthError error = errorAfterCallback(
        "orvelagent://callback?error=no%1B%5B2J%C2%9B%E2%80%AE" + std::string(1'000'000, 'x'));
    const std::string text = "no\uFFFD[2J\uFFFD\uFFFD" + std::string(492, 'x');
    EXPECT_EQ(error.message(), text);
    EXPECT_EQ(
        error.what(),
        "AuthError(message: \"" + text + "\", failure: Optional(TavrinCore.SignInFailure.other(\"" +
            text + "\")))");
}

} // namespace orvel
