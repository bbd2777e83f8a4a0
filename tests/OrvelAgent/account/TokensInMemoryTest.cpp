// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/DeviceAuth.h"
#include "OrvelAgent/account/FirebaseIdentity.h"
#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/network/APIClient.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "platform/WebAuthenticationSession.h"
#include "tests/support/HiddenToken.h"
#include "tests/support/RunTask.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/ManualClock.h"

#include <QObject>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

using test::HiddenToken;
using test::runTask;

/// A network that wipes every request and sends the test's reply.
class ForgetfulSession final : public URLSession {
public:
    std::function<std::string()> reply;
    /// Called for every request.
    std::function<void()> onRequest;

    std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) override {
        onRequest();
        for (auto& header : request.headers) {
            tavrin::wipe(header.second);
        }
        if (request.body) {
            tavrin::wipe(*request.body);
        }
        QMetaObject::invokeMethod(
            &callbackContext_,
            [this, completion = std::move(completion)] {
                completion(URLResponse{200, reply()});
            },
            Qt::QueuedConnection);
        return std::make_unique<NoTask>();
    }

private:
    struct NoTask final : Task {
        void cancel() override {}
    };

    QObject callbackContext_;
};

/// "$1" and "$2" stand for the tokens.
std::string filled(std::string_view text, const HiddenToken& first, const HiddenToken& second) {
    std::string result;
    result.reserve(1024);
    for (std::size_t index = 0; index < text.size(); ++index) {
        if (text[index] == '$') {
            std::string token = text[++index] == '1' ? first.text() : second.text();
            result += token;
            tavrin::wipe(token);
        } else {
            result += text[index];
        }
    }
    return result;
}

/// A browser that redirects every page to the test's callback.
class ForgetfulBrowser final : public WebAuthenticationSession {
public:
    std::function<std::string()> callback;

    std::unique_ptr<Attempt>
    start(std::string, std::string, Screen, std::function<void(Outcome)> completion) override {
        QMetaObject::invokeMethod(
            &callbackContext_,
            [this, completion = std::move(completion)] { completion(callback()); },
            Qt::QueuedConnection);
        return std::make_unique<NoAttempt>();
    }

private:
    struct NoAttempt final : Attempt {
        void cancel() override {}
    };

    QObject callbackContext_;
};

QCoro::Task<std::optional<tavrin::Secret>> provide(const HiddenToken* token) {
    std::optional<tavrin::Secret> secret;
    if (token != nullptr) {
        secret.emplace(token->text());
    }
    co_return secret;
}

class TokensInMemoryTest : public testing::Test {
protected:
    TokensInMemoryTest() {
        network_.onRequest = [this] {
            copiesDuringRequest_ = sent_.copiesInMemory();
        };
    }

    /// The first call of a shared library's function may save registers, with a part of a token, on
    /// the stack.
    static void SetUpTestSuite() {
        class FirstUse final : public TokensInMemoryTest {
        public:
            void TestBody() override {
                replyWith(R"({"id_token":"$1","refresh_token":"$2","expires_in":"3600"})");
                static_cast<void>(runTask(identity().refresh(tavrin::Secret(sent_.text()))));
            }
        };
        FirstUse().TestBody();
    }

    void replyWith(std::string_view text) {
        network_.reply = [this, text] {
            return filled(text, received_, alsoReceived_);
        };
    }

    [[nodiscard]] FirebaseIdentity identity() {
        return {network_, worker_, clock_, Configuration(bundle_)};
    }

    void expectNoneLeft() const {
        // Check that the search finds the token during the request.
        EXPECT_GE(copiesDuringRequest_, 1U);
        EXPECT_EQ(sent_.copiesInMemory(), 0U);
        EXPECT_EQ(received_.copiesInMemory(), 0U);
        EXPECT_EQ(alsoReceived_.copiesInMemory(), 0U);
    }

    test::FakeBundle bundle_;
    ForgetfulSession network_;
    test::ManualClock clock_;
    Worker worker_;
    HiddenToken sent_;
    HiddenToken received_;
    HiddenToken alsoReceived_;
    std::size_t copiesDuringRequest_ = 0;
};

} // namespace

TEST(HiddenTokenTest, ACopyIsFoundAfterItsMemoryWasFreed) {
    const HiddenToken token;
    EXPECT_EQ(token.copiesInMemory(), 0U);
    auto copy = std::make_unique<std::string>(token.text());
    EXPECT_EQ(token.copiesInMemory(), 1U);
    copy.reset();
    EXPECT_EQ(token.copiesInMemory(), 1U);
}

TEST(HiddenTokenTest, AnOverwrittenCopyIsNotFound) {
    const HiddenToken token;
    const auto secret = std::make_unique<tavrin::Secret>(token.text());
    EXPECT_EQ(token.copiesInMemory(), 1U);
    *secret = tavrin::Secret();
    EXPECT_EQ(token.copiesInMemory(), 0U);
}

TEST_F(TokensInMemoryTest, ARefreshLeavesNoTokenInMemory) {
    replyWith(R"({"id_token":"$1","refresh_token":"$2","expires_in":"3600"})");
    {
        const auto tokens = runTask(identity().refresh(tavrin::Secret(sent_.text())));
        EXPECT_EQ(received_.copiesInMemory(), 1U);
        EXPECT_EQ(alsoReceived_.copiesInMemory(), 1U);
    }
    expectNoneLeft();
}

TEST_F(TokensInMemoryTest, ARefreshWithALongTokenLeavesNoneOfItInMemory) {
    replyWith(R"({"id_token":"$1","refresh_token":"$2","expires_in":"3600"})");
    const std::string padding(2000, '.');
    std::string token;
    token.reserve(5000);
    std::string part = sent_.text();
    token.append(padding).append(part).append(padding);
    tavrin::wipe(part);
    static_cast<void>(runTask(identity().refresh(tavrin::Secret(std::move(token)))));
    expectNoneLeft();
}

TEST_F(TokensInMemoryTest, ASignInAtTheProviderLeavesNoTokenInMemory) {
    replyWith(R"({"idToken":"$1","refreshToken":"$2","expiresIn":"3600"})");
    static_cast<void>(runTask(identity().signInWithCustomToken(tavrin::Secret(sent_.text()))));
    expectNoneLeft();
}

TEST_F(TokensInMemoryTest, ARequestWithABearerTokenLeavesNoTokenInMemory) {
    replyWith(R"({"ok":true,"data":{"hints":[],"other":"$1"},"more":"$2"})");
    {
        const APIClient client(
            network_,
            worker_,
            Configuration(bundle_),
            "https://api.test.example",
            [this] { return provide(&sent_); },
            tavrin::Seconds(60));
        static_cast<void>(runTask(
            client.send<IngestClient::Digest>("/digest", "POST", std::make_shared<const Empty>())));
    }
    expectNoneLeft();
}

TEST_F(TokensInMemoryTest, ABrowserSignInLeavesNoCodeAndNoTokenInMemory) {
    replyWith(R"({"ok":true,"data":{"customToken":"$1","uid":"u"}})");
    ForgetfulBrowser browser;
    browser.callback = [this] {
        return filled("orvelagent://callback?code=$1", sent_, sent_);
    };
    {
        const APIClient client(
            network_,
            worker_,
            Configuration(bundle_),
            "https://api.test.example",
            [] { return provide(nullptr); },
            tavrin::Seconds(60));
        const DeviceAuth auth(browser, Configuration(bundle_));
        const tavrin::Secret customToken = runTask(auth.authorize(client));
        EXPECT_EQ(received_.copiesInMemory(), 1U);
    }
    expectNoneLeft();
}

TEST_F(TokensInMemoryTest, AnUnusedCodeOfTheCallbackIsNotLeftInMemory) {
    const HiddenToken unused;
    replyWith(R"({"ok":true,"data":{"customToken":"$1","uid":"u"}})");
    ForgetfulBrowser browser;
    browser.callback = [&] {
        // The beginning of freed memory is soon used again.
        std::string callback;
        callback.reserve(100'000);
        std::string code = filled("orvelagent://callback?code=$1&code=", sent_, sent_);
        callback.append(code).append(60'000, '.');
        tavrin::wipe(code);
        code = unused.text();
        callback += code;
        tavrin::wipe(code);
        return callback;
    };
    {
        const APIClient client(
            network_,
            worker_,
            Configuration(bundle_),
            "https://api.test.example",
            [] { return provide(nullptr); },
            tavrin::Seconds(60));
        static_cast<void>(runTask(DeviceAuth(browser, Configuration(bundle_)).authorize(client)));
    }
    expectNoneLeft();
    EXPECT_EQ(unused.copiesInMemory(), 0U);
}

} // namespace orvel
