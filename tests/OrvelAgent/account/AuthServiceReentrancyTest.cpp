// SPDX-License-Identifier: Apache-2.0
#include "tests/OrvelAgent/account/AuthServiceFixture.h"

namespace orvel {

namespace {

using test::processEvents;
using test::runTask;

using Token = std::optional<tavrin::Secret>;

QCoro::Task<> destroyWhenAnswered(std::unique_ptr<AuthService>* auth) {
    co_await (*auth)->currentToken();
    auth->reset();
}

/// Asks for a token during the destructor, which ends the refresh. Returns whether there was none.
QCoro::Task<bool> hasNoTokenDuringDestruction(AuthService* auth, AccountSession session) {
    co_await auth->currentToken();
    try {
        co_await session.tokenProvider();
    } catch (const tavrin::TaskCancelled&) {
        co_return true;
    }
    co_return false;
}

/// A receiver of `changed` destroys or changes the service, at every emission of every step in
/// turn. The address sanitizer reports invalid accesses.
class AuthServiceReentrancyTest : public AuthServiceTest {
protected:
    using Reaction = std::function<void()>;

    /// `act` starts the tasks that emit. Runs it once for every emission and every reaction.
    void reactToEveryEmission(
        int emissions, const std::function<void()>& prepare, const std::function<void()>& act) {
        const std::map<std::string, Reaction> reactions{
            {"destroy",
             [this] {
                 auth_.reset();
             }},
            {"replace",
             [this] {
                 begin();
             }},
            {"sign out",
             [this] {
                 auth_->signOut();
             }},
            {"cancel the sign-in",
             [this] {
                 auth_->cancelSignIn();
             }},
            {"sign in",
             [this] {
                 tasks_.push_back(auth_->signIn());
             }},
            {"ask for a token", [this] {
                 tokens_.push_back(auth_->currentToken());
             }}};
        for (const auto& [name, reaction] : reactions) {
            for (int emission = 1; emission <= emissions; ++emission) {
                SCOPED_TRACE(name + " at emission " + std::to_string(emission));
                auth_.reset();
                keychain_.items.clear();
                prepare();
                EXPECT_TRUE(reactsAt(emission, reaction, act));
            }
            auth_.reset();
            keychain_.items.clear();
            prepare();
            EXPECT_FALSE(reactsAt(emissions + 1, {}, act)) << "more emissions than expected";
        }
    }

    void startWithARefreshInFlight() {
        hang(refreshPath);
        startSignedIn();
        const auto before = requestCount(refreshPath);
        tokens_.push_back(auth_->currentToken());
        tokens_.push_back(auth_->currentToken());
        while (requestCount(refreshPath) == before) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }

    std::vector<QCoro::Task<>> tasks_;
    std::vector<QCoro::Task<Token>> tokens_;

private:
    bool reactsAt(int emission, const Reaction& reaction, const std::function<void()>& act) {
        int count = 0;
        bool hasReacted = false;
        auto context = std::make_unique<QObject>();
        QObject::connect(auth_.get(), &AuthService::changed, context.get(), [&] {
            if (++count == emission) {
                hasReacted = true;
                if (reaction) {
                    reaction();
                }
            }
        });
        act();
        finishTasks();
        context.reset();
        finishTokens();
        return hasReacted;
    }

    void finishTasks() {
        // Use an index, because a task may start another one when it ends.
        for (std::size_t i = 0; i < tasks_.size(); ++i) {
            QCoro::Task<> task = std::move(tasks_[i]);
            try {
                runTask(std::move(task));
            } catch (const tavrin::TaskCancelled&) {
                EXPECT_EQ(auth_ && auth_->isSigningIn(), false);
            }
        }
        tasks_.clear();
    }

    /// Expects that every waiter gets a result and every request ends.
    void finishTokens() {
        if (auth_) {
            // Ends a refresh whose request gets no reply.
            auth_->signOut();
        }
        for (std::size_t i = 0; i < tokens_.size(); ++i) {
            QCoro::Task<Token> task = std::move(tokens_[i]);
            static_cast<void>(runTask(std::move(task)));
        }
        tokens_.clear();
        processEvents();
        EXPECT_EQ(urlSession_.inFlight(), 0U);
        EXPECT_EQ(auth_ && auth_->isSigningIn(), false);
    }
};

} // namespace

TEST_F(AuthServiceReentrancyTest, WhileTheSessionIsRestored) {
    const auto prepare = [this] {
        keychain_.items[sessionItem] = storedSession;
        keychain_.lock();
        begin();
    };
    const auto act = [this] {
        tasks_.push_back(auth_->restored());
        keychain_.unlock();
        processEvents();
    };
    reactToEveryEmission(1, prepare, act);
}

TEST_F(AuthServiceReentrancyTest, InASignInThatEndsARefresh) {
    reactToEveryEmission(
        4, [this] { startWithARefreshInFlight(); }, [this] { tasks_.push_back(auth_->signIn()); });
}

TEST_F(AuthServiceReentrancyTest, InASignInThatFails) {
    browser_.user = [](const Browser::Page&) {
        return Browser::Outcome("orvelagent://callback?error=no_account");
    };
    reactToEveryEmission(
        2, [this] { startSignedIn(); }, [this] { tasks_.push_back(auth_->signIn()); });
}

TEST_F(AuthServiceReentrancyTest, InASignInWhoseSessionExpiresAtOnce) {
    answerWith(
        profilePath, 401, R"({"ok":false,"error":"Session expired.","code":"session_expired"})");
    reactToEveryEmission(
        4, [this] { start(); }, [this] { tasks_.push_back(auth_->signIn()); });
}

TEST_F(AuthServiceReentrancyTest, InASignOutThatEndsARefresh) {
    reactToEveryEmission(
        1, [this] { startWithARefreshInFlight(); }, [this] { auth_->signOut(); });
}

TEST_F(AuthServiceReentrancyTest, InARefreshThatFindsTheSessionRevoked) {
    const auto prepare = [this] {
        startSignedIn();
        answerWith(refreshPath, 400, rejection("INVALID_GRANT"));
    };
    const auto act = [this] {
        tokens_.push_back(auth_->currentToken());
        static_cast<void>(runTask(auth_->currentToken()));
    };
    reactToEveryEmission(1, prepare, act);
}

TEST_F(AuthServiceReentrancyTest, AWaiterForATokenMayDestroyIt) {
    const std::vector<std::function<void()>> endings{
        [this] { auth_->signOut(); },
        [this] { tasks_.push_back(auth_->signIn()); },
        [this] {
            auth_.reset();
        }};
    for (const auto& end : endings) {
        startWithARefreshInFlight();
        auto waiting = destroyWhenAnswered(&auth_);
        end();
        runTask(std::move(waiting));
        EXPECT_EQ(auth_, nullptr);
        for (QCoro::Task<>& task : tasks_) {
            runTask(std::move(task));
        }
        for (QCoro::Task<Token>& token : tokens_) {
            static_cast<void>(runTask(std::move(token)));
        }
        tasks_.clear();
        tokens_.clear();
    }
}

TEST_F(AuthServiceReentrancyTest, AWaiterForARefreshedTokenMayDestroyIt) {
    for (const int status : {200, 400}) {
        answerWith(refreshPath, status, status == 200 ? refreshReply : rejection("INVALID_GRANT"));
        startSignedIn();
        auto waiting = destroyWhenAnswered(&auth_);
        runTask(std::move(waiting));
        EXPECT_EQ(auth_, nullptr);
    }
}

TEST_F(AuthServiceReentrancyTest, ATokenProviderReturnsNoTokenDuringDestruction) {
    startSignedIn();
    AccountSession session = runTask(auth_->session()).value();
    hang(refreshPath);
    auto hasNone = hasNoTokenDuringDestruction(auth_.get(), std::move(session));
    while (urlSession_.requests().empty()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    auth_.reset();
    EXPECT_TRUE(runTask(std::move(hasNone)));
    EXPECT_EQ(urlSession_.requests().size(), 1U);
}

} // namespace orvel
