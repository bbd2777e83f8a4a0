// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::processEvents;
using test::runTask;

QCoro::Task<> destroyWhenRestored(std::unique_ptr<AuthService>* auth) {
    co_await (*auth)->restored();
    auth->reset();
}

} // namespace

TEST_F(AuthServiceTest, ItMayBeDestroyedWhileTheKeychainIsLocked) {
    keychain_.lock();
    begin();
    auto restored = auth_->restored();
    auth_.reset();
    EXPECT_THROW(runTask(std::move(restored)), tavrin::TaskCancelled);
    keychain_.unlock();
    processEvents();
}

TEST_F(AuthServiceTest, ItMayBeDestroyedWhileTheBrowserIsOpen) {
    browser_.user = nullptr;
    start();
    auto signIn = auth_->signIn();
    auth_.reset();
    runTask(std::move(signIn));
    EXPECT_FALSE(browser_.isWaiting());
}

TEST_F(AuthServiceTest, ItMayBeDestroyedInEveryRequest) {
    for (const std::string_view path : {exchangePath, signInPath, profilePath, refreshPath}) {
        keychain_.items.clear();
        hang(path);
        start();
        auto signIn = auth_->signIn();
        std::optional<QCoro::Task<std::optional<tavrin::Secret>>> token;
        if (path == refreshPath) {
            runTask(std::move(signIn));
            clock_.advance(tavrin::Seconds(3600));
            token = auth_->currentToken();
        }
        while (urlSession_.inFlight() == 0 || requestCount(path) == 0) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        auth_.reset();
        if (token) {
            EXPECT_EQ(runTask(*std::move(token)), std::nullopt);
        } else {
            runTask(std::move(signIn));
        }
        processEvents();
        EXPECT_EQ(urlSession_.inFlight(), 0U);
        answerWith(exchangePath, 200, exchangeReply);
        answerWith(signInPath, 200, signInReply);
        answerWith(profilePath, 200, profileReply);
    }
}

TEST_F(AuthServiceTest, AReceiverOfChangedMayDestroyIt) {
    for (int ending = 1; ending <= 4; ++ending) {
        keychain_.items.clear();
        start();
        int changes = 0;
        const QObject context;
        QObject::connect(auth_.get(), &AuthService::changed, &context, [&] {
            if (++changes == ending) {
                auth_.reset();
            }
        });
        runTask(auth_->signIn());
        EXPECT_EQ(auth_, nullptr) << ending;
    }
}

TEST_F(AuthServiceTest, AWaiterForTheSessionMayDestroyIt) {
    for (const bool isSigningIn : {false, true}) {
        keychain_.lock();
        begin();
        auto destroyed = destroyWhenRestored(&auth_);
        if (isSigningIn) {
            runTask(auth_->signIn());
        } else {
            auth_->signOut();
        }
        runTask(std::move(destroyed));
        EXPECT_EQ(auth_, nullptr);
        keychain_.unlock();
        processEvents();
        keychain_.items.clear();
    }
}

TEST_F(AuthServiceTest, WaitingForTheKeychainEndsWithTheService) {
    startSignedIn();
    auth_->signOut();
    auto stored = auth_->stored();
    EXPECT_FALSE(stored.isReady());
    auth_.reset();
    EXPECT_TRUE(stored.isReady());
    EXPECT_THROW(runTask(std::move(stored)), tavrin::TaskCancelled);
}

} // namespace orvel
