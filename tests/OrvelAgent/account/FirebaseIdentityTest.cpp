// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/FirebaseIdentity.h"

#include "OrvelAgent/account/IdentityError.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Worker.h"
#include "core/JSON.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/ManualClock.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using test::runTask;
using Tokens = FirebaseIdentity::Tokens;

tavrin::Secret secret(std::string text) {
    return tavrin::Secret(std::move(text));
}

class FirebaseIdentityTest : public testing::Test {
protected:
    FirebaseIdentityTest() {
        bundle_.setInfo("IDENTITY_TOOLKIT_URL", "https://identity.test.example/v1/");
        bundle_.setInfo("SECURE_TOKEN_URL", "https://secure.test.example/v1/token");
        bundle_.setInfo("FIREBASE_API_KEY", "the-key");
    }

    [[nodiscard]] FirebaseIdentity identity() {
        return {session_, worker_, clock_, Configuration(bundle_)};
    }

    Tokens signIn(std::string token = "custom") {
        return runTask(identity().signInWithCustomToken(secret(std::move(token))));
    }
    Tokens refresh(std::string token = "old") {
        return runTask(identity().refresh(secret(std::move(token))));
    }

    static std::string signInReply(const std::string& expiresIn = "3600") {
        return R"({"kind":"x","idToken":"id-1","refreshToken":"refresh-1","expiresIn":")" +
               expiresIn + R"(","isNewUser":true})";
    }
    static std::string refreshReply(const std::string& expiresIn = "3600") {
        return R"({"access_token":"x","id_token":"id-2","refresh_token":"refresh-2",)"
               R"("expires_in":")" +
               expiresIn + R"(","token_type":"Bearer"})";
    }

    static std::string rejection(const std::string& message) {
        return R"({"error":{"code":400,"message":")" + message + R"("}})";
    }

    /// The result of both operations, which must be the same.
    IdentityError errorOf(int status, const std::string& body) {
        session_.enqueue(status, body);
        session_.enqueue(status, body);
        const IdentityError error = identityError([this] { signIn(); });
        EXPECT_STREQ(identityError([this] { refresh(); }).what(), error.what());
        return error;
    }

    template <typename Action>
    static IdentityError identityError(Action action) {
        try {
            action();
        } catch (const IdentityError& error) {
            return error;
        }
        ADD_FAILURE() << "no IdentityError";
        return IdentityError("");
    }

    template <typename Action>
    static std::string decodingError(Action action) {
        try {
            action();
        } catch (const tavrin::JSONDecodingError& error) {
            return error.what();
        }
        ADD_FAILURE() << "no JSONDecodingError";
        return {};
    }

    tavrin::Seconds lifetime(const Tokens& tokens) const { return tokens.expiresAt - clock_.now(); }

    test::FakeBundle bundle_;
    test::FakeURLSession session_;
    test::ManualClock clock_;
    Worker worker_;
};

using Headers = std::vector<std::pair<std::string, std::string>>;

} // namespace

TEST_F(FirebaseIdentityTest, SigningInPostsTheCustomTokenAsJSON) {
    session_.enqueue(200, signInReply());
    signIn("a \"custom\" token/=");
    ASSERT_EQ(session_.requests().size(), 1U);
    const URLRequest& request = session_.requests().front();
    EXPECT_EQ(
        request.url, "https://identity.test.example/v1/accounts:signInWithCustomToken?key=the-key");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.timeout, tavrin::Seconds(60));
    EXPECT_EQ(request.headers, (Headers{{"Content-Type", "application/json"}}));
    EXPECT_EQ(request.body, R"({"token":"a \"custom\" token/=","returnSecureToken":true})");
}

TEST_F(FirebaseIdentityTest, RefreshingPostsAForm) {
    session_.enqueue(200, refreshReply());
    refresh("old-token");
    ASSERT_EQ(session_.requests().size(), 1U);
    const URLRequest& request = session_.requests().front();
    EXPECT_EQ(request.url, "https://secure.test.example/v1/token?key=the-key");
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.timeout, tavrin::Seconds(60));
    EXPECT_EQ(request.headers, (Headers{{"Content-Type", "application/x-www-form-urlencoded"}}));
    EXPECT_EQ(request.body, "grant_type=refresh_token&refresh_token=old-token");
}

TEST_F(FirebaseIdentityTest, TheRefreshTokenIsPercentEncoded) {
    session_.enqueue(200, refreshReply());
    refresh("a/b=c d%e&f;g+h-ü");
    EXPECT_EQ(
        session_.requests().front().body,
        "grant_type=refresh_token&refresh_token=a%2Fb%3Dc%20d%25e%26f%3Bg+h-%C3%BC");
}

TEST_F(FirebaseIdentityTest, WithoutAKeyTheRequestsHaveAnEmptyOne) {
    bundle_.setInfo("FIREBASE_API_KEY", "");
    session_.enqueue(200, signInReply());
    session_.enqueue(200, refreshReply());
    signIn();
    refresh();
    EXPECT_EQ(
        session_.requests().at(0).url,
        "https://identity.test.example/v1/accounts:signInWithCustomToken?key=");
    EXPECT_EQ(session_.requests().at(1).url, "https://secure.test.example/v1/token?key=");
}

TEST_F(FirebaseIdentityTest, SigningInReturnsTheTokens) {
    session_.enqueue(200, signInReply());
    const Tokens tokens = signIn();
    EXPECT_EQ(tokens.idToken.text(), "id-1");
    EXPECT_EQ(tokens.refreshToken.text(), "refresh-1");
    EXPECT_EQ(lifetime(tokens), tavrin::Seconds(3600));
}

TEST_F(FirebaseIdentityTest, RefreshingReturnsTheTokens) {
    session_.enqueue(299, refreshReply("1800"));
    const Tokens tokens = refresh();
    EXPECT_EQ(tokens.idToken.text(), "id-2");
    EXPECT_EQ(tokens.refreshToken.text(), "refresh-2");
    EXPECT_EQ(lifetime(tokens), tavrin::Seconds(1800));
}

TEST_F(FirebaseIdentityTest, AnInvalidLifetimeMeansOneHour) {
    const std::vector<std::pair<std::string, double>> table = {
        {"3600", 3600},
        {"120.5", 120.5},
        {"0", 0},
        {"-5", -5},
        {"1e2", 100},
        {"+120", 120},
        {"+-5", 3600},
        {"abc", 3600},
        {"", 3600},
        {"12x", 3600},
        {" 60", 3600},
        {"60 ", 3600},
        {"nan", 3600},
        {"inf", 3600},
        {"1e999", 3600}};
    for (const auto& [text, expected] : table) {
        session_.enqueue(200, signInReply(text));
        EXPECT_DOUBLE_EQ(lifetime(signIn()).count(), expected) << text;
        session_.enqueue(200, refreshReply(text));
        EXPECT_DOUBLE_EQ(lifetime(refresh()).count(), expected) << text;
    }
}

TEST_F(FirebaseIdentityTest, TheLifetimeCountsFromTheReply) {
    session_.setHandler([this](const URLRequest&) {
        clock_.advance(tavrin::Seconds(50));
        return URLResponse{200, refreshReply("100")};
    });
    const tavrin::Date start = clock_.now();
    EXPECT_EQ(refresh().expiresAt - start, tavrin::Seconds(150));
}

TEST_F(FirebaseIdentityTest, ARefusalHasTheProvidersMessage) {
    const IdentityError error =
        errorOf(400, R"({"error":{"code":400,"message":"INVALID_REFRESH_TOKEN","status":"X"}})");
    EXPECT_EQ(error.message(), "INVALID_REFRESH_TOKEN");
    EXPECT_EQ(error.status(), 400);
    EXPECT_TRUE(FirebaseIdentity::isRevocation(error.message()));
}

TEST_F(FirebaseIdentityTest, ARefusalWithoutAMessageIsDescribedByItsStatus) {
    const std::vector<std::pair<int, std::string>> table = {
        {400, "<html>Bad Request</html>"},
        {400, ""},
        {503, "{}"},
        {503, R"({"error":null})"},
        {403, R"({"error":"denied"})"},
        {403, R"({"error":["denied"]})"},
        {429, R"({"error":{}})"},
        {429, R"({"error":{"message":null}})"},
        {500, R"({"error":{"message":7}})"},
        {500, R"([{"error":{"message":"x"}}])"},
        {502, R"({"error":{"message":"x"}} and more)"},
        {199, ""},
        {300, ""}};
    for (const auto& [status, body] : table) {
        const IdentityError error = errorOf(status, body);
        EXPECT_EQ(error.message(), "HTTP " + std::to_string(status)) << body;
        EXPECT_EQ(error.status(), status) << body;
        EXPECT_FALSE(FirebaseIdentity::isRevocation(error.message()));
    }
}

TEST_F(FirebaseIdentityTest, AnEmptyMessageIsAMessage) {
    EXPECT_EQ(errorOf(400, R"({"error":{"message":""}})").message(), "");
}

TEST_F(FirebaseIdentityTest, AReplyThatWasNotHTTPHasStatusZero) {
    const IdentityError error = errorOf(0, "");
    EXPECT_EQ(error.message(), "HTTP 0");
    EXPECT_EQ(error.status(), 0);
}

TEST_F(FirebaseIdentityTest, TokensInARefusalAreIgnored) {
    EXPECT_EQ(errorOf(302, signInReply()).message(), "HTTP 302");
}

TEST_F(FirebaseIdentityTest, ASuccessWithoutOneOfTheKeysIsADecodingError) {
    const std::vector<std::tuple<std::string, std::string, std::string>> table = {
        {R"({"refreshToken":"sesame","expiresIn":"1"})",
         R"({"refresh_token":"sesame","expires_in":"1"})",
         "idToken"},
        {R"({"idToken":"sesame","expiresIn":"1"})",
         R"({"id_token":"sesame","expires_in":"1"})",
         "refreshToken"},
        {R"({"idToken":"sesame","refreshToken":"sesame"})",
         R"({"id_token":"sesame","refresh_token":"sesame"})",
         "expiresIn"},
        {R"({"idToken":"sesame","refreshToken":"sesame","expiresIn":3600})",
         R"({"id_token":"sesame","refresh_token":"sesame","expires_in":3600})",
         "expiresIn"},
        {R"({"idToken":null,"refreshToken":"sesame","expiresIn":"1"})",
         R"({"id_token":null,"refresh_token":"sesame","expires_in":"1"})",
         "idToken"}};
    for (const auto& [signInBody, refreshBody, key] : table) {
        session_.enqueue(200, signInBody);
        const std::string signInError = decodingError([this] { signIn(); });
        EXPECT_NE(signInError.find(key), std::string::npos) << signInError;
        EXPECT_EQ(signInError.find("sesame"), std::string::npos) << signInError;
        session_.enqueue(200, refreshBody);
        const std::string refreshError = decodingError([this] { refresh(); });
        EXPECT_EQ(refreshError.find("sesame"), std::string::npos) << refreshError;
    }
}

TEST_F(FirebaseIdentityTest, ASuccessWithATokenThatCannotBeUsedIsADecodingError) {
    for (const std::string value :
         {"",
          " ",
          "se same",
          "sesame\\r\\nX-Injected: 1",
          "sesame\\n",
          "sesame\\u0000",
          "sesame\\u007f",
          "\\u001b[31msesame",
          "s\\u00e9same"}) {
        const std::string good = R"("sesame")";
        const std::string bad = '"' + value + '"';
        for (const bool isIDToken : {true, false}) {
            const std::string& first = isIDToken ? bad : good;
            const std::string& second = isIDToken ? good : bad;
            session_.enqueue(
                200,
                R"({"idToken":)" + first + R"(,"refreshToken":)" + second +
                    R"(,"expiresIn":"3600"})");
            EXPECT_EQ(
                decodingError([this] { signIn(); }),
                isIDToken ? R"(The JSON key "idToken" is not a token.)"
                          : R"(The JSON key "refreshToken" is not a token.)")
                << value;
            session_.enqueue(
                200,
                R"({"id_token":)" + first + R"(,"refresh_token":)" + second +
                    R"(,"expires_in":"3600"})");
            EXPECT_EQ(
                decodingError([this] { refresh(); }),
                isIDToken ? R"(The JSON key "id_token" is not a token.)"
                          : R"(The JSON key "refresh_token" is not a token.)")
                << value;
        }
    }
}

TEST_F(FirebaseIdentityTest, ASuccessThatIsNotJSONIsADecodingErrorWithoutItsText) {
    for (const std::string& body :
         {std::string("sesame"),
          std::string(),
          std::string(R"(["sesame"])"),
          R"({"id_token":"sesame","refresh_token":"sesame")" + std::string("\xFF")}) {
        session_.enqueue(200, body);
        const std::string error = decodingError([this] { refresh(); });
        EXPECT_EQ(error.find("sesame"), std::string::npos) << error;
    }
}

TEST_F(FirebaseIdentityTest, EachOperationReadsItsOwnKeysOnly) {
    session_.enqueue(200, refreshReply());
    EXPECT_THROW(signIn(), tavrin::JSONDecodingError);
    session_.enqueue(200, signInReply());
    EXPECT_THROW(refresh(), tavrin::JSONDecodingError);
}

TEST_F(FirebaseIdentityTest, ATransportErrorIsRethrownUnchanged) {
    session_.enqueue(tavrin::URLErrorCode::NotConnectedToInternet);
    try {
        refresh();
        FAIL() << "no error";
    } catch (const tavrin::URLError& error) {
        EXPECT_EQ(error.code(), tavrin::URLErrorCode::NotConnectedToInternet);
    }
}

TEST_F(FirebaseIdentityTest, ARefusalIsNotRetried) {
    session_.enqueue(503, "");
    EXPECT_THROW(refresh(), IdentityError);
    EXPECT_EQ(session_.requests().size(), 1U);
}

TEST_F(FirebaseIdentityTest, CancellingEndsAnExchangeInFlight) {
    session_.enqueue(std::nullopt);
    tavrin::CancellationSource source;
    auto task = identity().refresh(secret("old"), source.token());
    EXPECT_EQ(session_.inFlight(), 1U);
    source.cancel();
    EXPECT_THROW(runTask(std::move(task)), tavrin::TaskCancelled);
}

TEST_F(FirebaseIdentityTest, ARequestCancelledBeforeItStartsIsNotSent) {
    tavrin::CancellationSource source;
    source.cancel();
    EXPECT_THROW(
        runTask(identity().signInWithCustomToken(secret("custom"), source.token())),
        tavrin::TaskCancelled);
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(FirebaseIdentityTest, ItMayBeDestroyedWhileItsRequestIsInFlight) {
    session_.enqueue(200, refreshReply());
    auto task = [this] {
        const FirebaseIdentity shortLived = identity();
        return shortLived.refresh(secret("old"));
    }();
    EXPECT_EQ(runTask(std::move(task)).idToken.text(), "id-2");
}

TEST(FirebaseIdentityReasonsTest, EightMessagesEndASession) {
    for (const char* message :
         {"TOKEN_EXPIRED",
          "USER_DISABLED",
          "USER_NOT_FOUND",
          "INVALID_REFRESH_TOKEN",
          "INVALID_GRANT",
          "MISSING_REFRESH_TOKEN",
          "CREDENTIAL_TOO_OLD_LOGIN_AGAIN",
          "TOKEN_REVOKED"}) {
        EXPECT_TRUE(FirebaseIdentity::isRevocation(message)) << message;
    }
}

TEST(FirebaseIdentityReasonsTest, TheMessageMustMatchExactly) {
    for (const char* message :
         {"token_expired",
          "TOKEN_EXPIRED ",
          "TOKEN_EXPIRED : the user's credential is no longer valid",
          "TOKEN",
          "",
          "HTTP 400",
          "INVALID_ID_TOKEN",
          "INVALID_CUSTOM_TOKEN",
          "QUOTA_EXCEEDED"}) {
        EXPECT_FALSE(FirebaseIdentity::isRevocation(message)) << message;
    }
}

TEST_F(FirebaseIdentityTest, AMessageThatRepeatsTheRequestIsNotShown) {
    const std::string token = "AMf-vBx7z_0123456789.abcdefghijklmnopqrstuvwxyz/=";
    for (const std::string& message :
         {"Unknown token " + token,
          std::string("grant_type=refresh_token&refresh_token=AMf-vBx7z_0123456789."
                      "abcdefghijklmnopqrstuvwxyz%2F%3D"),
          std::string("Unknown token AMf-vBx7z_0123456789.abcdef..."),
          std::string("The key the-key is not valid."),
          // JSON for a tab. Written as an escape again, it completes the key.
          std::string("The key \\the-key is not valid.")}) {
        session_.enqueue(400, rejection(message));
        session_.enqueue(400, rejection(message));
        for (const IdentityError& error :
             {identityError([&] { signIn(token); }), identityError([&] { refresh(token); })}) {
            EXPECT_EQ(error.message(), "HTTP 400") << message;
            EXPECT_STREQ(
                error.what(), R"(IdentityError(message: "HTTP 400", status: Optional(400)))");
        }
    }
}

TEST_F(FirebaseIdentityTest, ARevocationIsRecognizedWithAnyToken) {
    session_.enqueue(400, rejection("INVALID_REFRESH_TOKEN"));
    const IdentityError error = identityError([&] { refresh("INVALID_REFRESH_TOKEN"); });
    EXPECT_TRUE(FirebaseIdentity::isRevocation(error.message()));
}

TEST_F(FirebaseIdentityTest, ALongMessageIsCut) {
    const IdentityError error = errorOf(400, rejection(std::string(5'000'000, 'x')));
    EXPECT_EQ(error.message(), std::string(500, 'x'));
    EXPECT_LE(std::string_view(error.what()).size(), 600U);
}

TEST_F(FirebaseIdentityTest, AStatusOutside2xxIsNeverASuccess) {
    for (const int status : {0, 100, 199, 300, 304, 400, 404, 500, 503}) {
        session_.enqueue(status, signInReply());
        EXPECT_EQ(identityError([this] { signIn(); }).message(), "HTTP " + std::to_string(status));
        session_.enqueue(status, refreshReply());
        EXPECT_EQ(identityError([this] { refresh(); }).message(), "HTTP " + std::to_string(status));
    }
}

TEST_F(FirebaseIdentityTest, AByteOrderMarkIsSkipped) {
    session_.enqueue(200, "\uFEFF" + signInReply());
    EXPECT_EQ(signIn().idToken.text(), "id-1");
    EXPECT_EQ(errorOf(400, "\uFEFF" + rejection("TOKEN_EXPIRED")).message(), "TOKEN_EXPIRED");
}

} // namespace orvel
