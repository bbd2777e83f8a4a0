// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/account/AuthService.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeKeychain.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/FakeWebAuthenticationSession.h"
#include "tests/support/fakes/FakeWorkspace.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <QCoreApplication>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

/// An `AuthService` with a fake bundle, keychain, browser and network, whose replies depend on the
/// path.
class AuthServiceTest : public testing::Test {
protected:
    using Browser = test::FakeWebAuthenticationSession;
    using FakeURLSession = test::FakeURLSession;
    using Line = test::RecordingLogStore::Line;

    inline static const std::string service = "app.test.Agent.session";
    inline static const test::FakeKeychain::Name sessionItem{service, "session"};

    static constexpr std::string_view exchangePath = "/api/v1/auth/device/token";
    static constexpr std::string_view profilePath = "/api/v1/profile";
    static constexpr std::string_view signInPath = "accounts:signInWithCustomToken";
    static constexpr std::string_view refreshPath = "/v1/token";

    static constexpr const char* exchangeReply =
        R"({"ok":true,"data":{"customToken":"custom-secret","uid":"uid-1"}})";
    static constexpr const char* signInReply =
        R"({"idToken":"id-secret-1","refreshToken":"refresh-secret-1","expiresIn":"3600"})";
    static constexpr const char* refreshReply =
        R"({"id_token":"id-secret-2","refresh_token":"refresh-secret-2","expires_in":"3600"})";
    static constexpr const char* profileReply =
        R"({"ok":true,"data":{"uid":"uid-1","email":"one@orvel.example","handle":"one"}})";
    static constexpr const char* storedSession =
        R"({"refreshToken":"refresh-secret-0","uid":"uid-0","email":"zero@orvel.example",)"
        R"("handle":"zero"})";

    AuthServiceTest() {
        bundle_.setInfo("CFBundleIdentifier", "app.test.Agent");
        bundle_.setInfo("API_HOST", "api.test.example");
        bundle_.setInfo("WEB_HOST", "www.test.example");
        bundle_.setInfo("IDENTITY_TOOLKIT_URL", "https://identity.test.example/v1/");
        bundle_.setInfo("SECURE_TOKEN_URL", "https://token.test.example/v1/token");
        answers_[std::string(exchangePath)] = URLResponse{200, exchangeReply};
        answers_[std::string(signInPath)] = URLResponse{200, signInReply};
        answers_[std::string(refreshPath)] = URLResponse{200, refreshReply};
        answers_[std::string(profilePath)] = URLResponse{200, profileReply};
        urlSession_.setHandler([this](const URLRequest& request) { return answer(request); });
        browser_.user = [](const Browser::Page&) {
            return Browser::Outcome("orvelagent://callback?code=code-secret");
        };
    }

    /// A new process whose session has been restored.
    void start() {
        begin();
        test::runTask(auth_->restored());
    }

    /// A new process whose session has not been restored yet.
    void begin() {
        auth_.reset();
        const AuthService::Dependencies dependencies{
            urlSession_, worker_, keychain_, browser_, workspace_, clock_, log_};
        auth_ = std::make_unique<AuthService>(dependencies, Configuration(bundle_));
    }

    void startSignedIn() {
        keychain_.items[sessionItem] = storedSession;
        start();
    }

    /// The request gets no reply.
    void hang(std::string_view path) { answers_[std::string(path)] = std::nullopt; }

    void answerWith(std::string_view path, int status, std::string body) {
        answers_[std::string(path)] = URLResponse{status, std::move(body)};
    }

    /// The user cancels the sign-in after that reply has arrived, before it is decoded.
    void cancelWithReplyOnItsWay(std::string_view path) {
        urlSession_.setHandler([this, path](const URLRequest& request) {
            if (request.url.find(path) != std::string::npos) {
                // The second turn of the loop comes after the reply and before the decoded result.
                const auto later = [this](const std::function<void()>& job) {
                    QMetaObject::invokeMethod(auth_.get(), job, Qt::QueuedConnection);
                };
                later([this, later] { later([this] { auth_->cancelSignIn(); }); });
            }
            return answer(request);
        });
    }

    std::optional<std::string> currentToken() {
        return textOf(test::runTask(auth_->currentToken()));
    }

    static std::string rejection(const std::string& message) {
        return R"({"error":{"code":400,"message":")" + message + R"("}})";
    }

    static std::optional<std::string> textOf(const std::optional<tavrin::Secret>& token) {
        return token ? std::optional(token->text()) : std::nullopt;
    }

    void expectSignedOut() {
        EXPECT_FALSE(auth_->isSignedIn());
        EXPECT_EQ(auth_->accountEmail(), std::nullopt);
        EXPECT_EQ(auth_->accountHandle(), std::nullopt);
        EXPECT_EQ(auth_->lastError(), std::nullopt);
        EXPECT_FALSE(auth_->needsAccount());
        EXPECT_THAT(keychain_.items, testing::IsEmpty());
    }

    /// Expects the state before the sign-in.
    void expectTakenBack() {
        expectSignedOut();
        EXPECT_FALSE(auth_->isSigningIn());
        EXPECT_THAT(errorLines(), testing::IsEmpty());
    }

    [[nodiscard]] std::vector<std::string> errorLines() const {
        std::vector<std::string> messages;
        for (const Line& line : log_.lines()) {
            if (line.level >= LogLevel::Error) {
                messages.push_back(line.message);
            }
        }
        return messages;
    }

    [[nodiscard]] std::size_t requestCount(std::string_view path) const {
        const auto& requests = urlSession_.requests();
        return static_cast<std::size_t>(
            std::count_if(requests.begin(), requests.end(), [path](const URLRequest& request) {
                return request.url.find(path) != std::string::npos;
            }));
    }

    [[nodiscard]] const URLRequest& lastRequest(std::string_view path) const {
        const auto& requests = urlSession_.requests();
        const auto found =
            std::find_if(requests.rbegin(), requests.rend(), [path](const URLRequest& request) {
                return request.url.find(path) != std::string::npos;
            });
        EXPECT_NE(found, requests.rend());
        return *found;
    }

    static std::optional<std::string> bearer(const URLRequest& request) {
        for (const auto& [name, value] : request.headers) {
            if (name == "Authorization") {
                return value;
            }
        }
        return std::nullopt;
    }

    [[nodiscard]] Line lastLine() const { return log_.lines().back(); }

    test::FakeBundle bundle_;
    test::ManualClock clock_;
    FakeURLSession urlSession_;
    test::FakeKeychain keychain_;
    Browser browser_;
    test::FakeWorkspace workspace_;
    test::RecordingLogStore log_;
    Worker worker_;
    std::unique_ptr<AuthService> auth_;
    std::map<std::string, FakeURLSession::Answer> answers_;

private:
    FakeURLSession::Answer answer(const URLRequest& request) {
        for (const auto& [path, answer] : answers_) {
            if (request.url.find(path) != std::string::npos) {
                return answer;
            }
        }
        return URLResponse{404, ""};
    }
};

} // namespace orvel
