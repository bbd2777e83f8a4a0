// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/account/IdentityError.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Worker.h"
#include "tests/platform/RealURLSession.h"
#include "tests/support/LocalServer.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/ManualClock.h"

#include <QByteArray>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <boost/json/value_to.hpp>
#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

/// Tests with the identity provider's emulator, whose URL is in the environment. Not part of the
/// normal test run, because the emulator must be downloaded.
namespace orvel {

namespace {

using test::runTask;
using Tokens = FirebaseIdentity::Tokens;

std::string emulatorURL() {
    const char* const url = std::getenv("ORVEL_IDENTITY_EMULATOR");
    return url == nullptr ? "" : url;
}

/// Forwards each request unchanged. The emulator supports only HTTP, and our session only HTTPS.
void forward(test::LocalServer::Connection& connection) {
    const test::LocalServer::Request received = connection.readRequest();
    httplib::Request request;
    const std::size_t path = received.line.find(' ') + 1;
    request.method = received.line.substr(0, path - 1);
    request.path = received.line.substr(path, received.line.rfind(' ') - path);
    for (const auto& [name, value] : received.headers) {
        request.headers.emplace(name, value);
    }
    request.body = received.body;
    httplib::Client emulator(emulatorURL());
    const httplib::Result reply = emulator.send(request);
    if (!reply) {
        throw std::runtime_error("The emulator does not answer.");
    }
    connection.reply(reply->status, reply->body);
}

std::string base64URL(const boost::json::value& json) {
    return QByteArray::fromStdString(boost::json::serialize(json))
        .toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals)
        .toStdString();
}

/// Unsigned, which only the emulator accepts.
tavrin::Secret customToken(std::string_view user) {
    const boost::json::value header = {{"alg", "none"}, {"typ", "JWT"}};
    const boost::json::value claims = {
        {"aud",
         "https://identitytoolkit.googleapis.com/"
         "google.identity.identitytoolkit.v1.IdentityToolkit"},
        {"uid", user}};
    return tavrin::Secret(base64URL(header) + "." + base64URL(claims) + ".");
}

/// The user id in the token.
std::string userOf(const tavrin::Secret& idToken) {
    const QByteArray payload = QByteArray::fromStdString(idToken.text()).split('.').value(1);
    const boost::json::value claims = boost::json::parse(
        QByteArray::fromBase64(payload, QByteArray::Base64UrlEncoding).toStdString());
    return boost::json::value_to<std::string>(claims.at("user_id"));
}

class IdentityConformanceTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(emulatorURL(), "") << "ORVEL_IDENTITY_EMULATOR has to name the emulator's URL.";
        front_ = std::make_unique<test::LocalServer>(forward);
        const std::filesystem::path certificates = folder_ / "authority.pem";
        std::ofstream(certificates) << front_->authority();
        session_ = test::makeRealURLSession({certificates});
        bundle_.setInfo("IDENTITY_TOOLKIT_URL", front_->url("/identitytoolkit.googleapis.com/v1/"));
        bundle_.setInfo("SECURE_TOKEN_URL", front_->url("/securetoken.googleapis.com/v1/token"));
        bundle_.setInfo("FIREBASE_API_KEY", "any-key");
    }

    [[nodiscard]] FirebaseIdentity identity() {
        return {*session_, worker_, clock_, Configuration(bundle_)};
    }

    Tokens signIn(tavrin::Secret token) {
        return runTask(identity().signInWithCustomToken(std::move(token)));
    }
    Tokens refresh(tavrin::Secret token) { return runTask(identity().refresh(std::move(token))); }

    template <typename Action>
    static std::optional<IdentityError> refusalOf(Action action) {
        try {
            static_cast<void>(action());
        } catch (const IdentityError& error) {
            // Keep the provider's real message in the test output.
            std::cout << error.what() << '\n';
            return error;
        }
        return std::nullopt;
    }

    test::TemporaryDirectory folder_;
    std::unique_ptr<test::LocalServer> front_;
    std::unique_ptr<URLSession> session_;
    test::FakeBundle bundle_;
    test::ManualClock clock_;
    Worker worker_;
};

} // namespace

TEST_F(IdentityConformanceTest, ACustomTokenSignsIn) {
    const Tokens tokens = signIn(customToken("ada"));
    EXPECT_EQ(userOf(tokens.idToken), "ada");
    EXPECT_FALSE(tokens.refreshToken.isEmpty());
    EXPECT_EQ(tokens.expiresAt - clock_.now(), tavrin::Seconds(3600));
}

TEST_F(IdentityConformanceTest, ARefreshTokenCanBeUsedRepeatedly) {
    const Tokens first = signIn(customToken("grace"));
    const Tokens second = refresh(first.refreshToken);
    EXPECT_EQ(userOf(second.idToken), "grace");
    EXPECT_EQ(second.expiresAt - clock_.now(), tavrin::Seconds(3600));
    EXPECT_EQ(userOf(refresh(second.refreshToken).idToken), "grace");
}

TEST_F(IdentityConformanceTest, AnInvalidRefreshTokenIsARevocation) {
    for (const char* token : {"nonsense", "a/b=c+d e%&f", "="}) {
        const auto error = refusalOf([&] { return refresh(tavrin::Secret(std::string(token))); });
        ASSERT_TRUE(error) << token;
        EXPECT_EQ(error->status(), 400) << token;
        EXPECT_TRUE(FirebaseIdentity::isRevocation(error->message())) << error->message();
    }
}

TEST_F(IdentityConformanceTest, AnEmptyRefreshTokenIsARevocation) {
    const auto error = refusalOf([&] { return refresh(tavrin::Secret()); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status(), 400);
    EXPECT_TRUE(FirebaseIdentity::isRevocation(error->message())) << error->message();
}

TEST_F(IdentityConformanceTest, ADeletedAccountIsARevocation) {
    const Tokens tokens = signIn(customToken("linus"));
    httplib::Client emulator(emulatorURL());
    const httplib::Result deleted = emulator.Delete("/emulator/v1/projects/demo-orvel/accounts");
    ASSERT_TRUE(deleted);
    ASSERT_EQ(deleted->status, 200);
    const auto error = refusalOf([&] { return refresh(tokens.refreshToken); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status(), 400);
    EXPECT_TRUE(FirebaseIdentity::isRevocation(error->message())) << error->message();
}

TEST_F(IdentityConformanceTest, AnInvalidCustomTokenIsRefusedButIsNoRevocation) {
    const auto error = refusalOf([&] { return signIn(tavrin::Secret(std::string("garbage"))); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status(), 400);
    EXPECT_TRUE(error->message().starts_with("INVALID_CUSTOM_TOKEN")) << error->message();
    EXPECT_FALSE(FirebaseIdentity::isRevocation(error->message()));
}

TEST_F(IdentityConformanceTest, WithoutAKeyTheProviderRefuses) {
    bundle_.setInfo("FIREBASE_API_KEY", "");
    const auto error = refusalOf([&] { return signIn(customToken("ada")); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->status(), 403);
    EXPECT_FALSE(FirebaseIdentity::isRevocation(error->message()));
}

} // namespace orvel
