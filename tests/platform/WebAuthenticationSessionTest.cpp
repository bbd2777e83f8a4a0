// SPDX-License-Identifier: Apache-2.0
//
// Contract tests for every web authentication session: the fake and this system's.
#include "platform/WebAuthenticationSession.h"

#include "tests/platform/RealWebAuthenticationSession.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/FakeWebAuthenticationSession.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using test::waitUntil;
using testing::ElementsAre;
using testing::IsEmpty;
using Outcome = WebAuthenticationSession::Outcome;

constexpr auto page = "https://www.example.com/link?challenge=c";
constexpr auto scheme = "orvelagent";

class FakeSubject final : public test::WebAuthenticationSubject {
public:
    WebAuthenticationSession& session() override { return *session_; }
    void destroySession() override { session_.reset(); }
    std::vector<std::string> pages() override {
        std::vector<std::string> urls;
        for (const auto& each : session_->pages()) {
            urls.push_back(each.url);
        }
        return urls;
    }
    void removeBrowser() override {
        session_->user = [](const auto&) {
            return WebAuthenticationSession::NotStarted();
        };
    }
    void callBack(const std::string& url) override { session_->finish(url); }
    bool isOpenToAnyPage() override { return session_->isOpenToAnyPage; }

    /// Makes every page able to call back.
    void openToAnyPage() { session_->isOpenToAnyPage = true; }

private:
    std::unique_ptr<test::FakeWebAuthenticationSession> session_ =
        std::make_unique<test::FakeWebAuthenticationSession>();
};

/// Ignores callbacks with "ignored", and replaces those with "replaced".
std::optional<Outcome> screen(const std::string& url) {
    if (url.find("ignored") != std::string::npos) {
        return std::nullopt;
    }
    if (url.find("replaced") != std::string::npos) {
        return WebAuthenticationSession::Failed{"It was replaced."};
    }
    return url;
}

struct Kind {
    const char* name;
    std::unique_ptr<test::WebAuthenticationSubject> (*make)();
};

class WebAuthenticationSessionTest : public testing::TestWithParam<Kind> {
protected:
    /// An attempt and its outcomes so far.
    struct Started {
        std::unique_ptr<WebAuthenticationSession::Attempt> attempt;
        std::shared_ptr<std::vector<Outcome>> outcomes = std::make_shared<std::vector<Outcome>>();

        [[nodiscard]] Outcome outcome() const {
            EXPECT_TRUE(waitUntil([this] { return !outcomes->empty(); }));
            test::processEvents();
            EXPECT_EQ(outcomes->size(), 1U);
            return outcomes->front();
        }
    };

    Started start(const std::string& url = page) {
        Started started;
        started.attempt = subject_->session().start(
            url, scheme, screen, [outcomes = started.outcomes](Outcome outcome) {
                outcomes->push_back(std::move(outcome));
            });
        EXPECT_THAT(*started.outcomes, IsEmpty()) << "answered before the call returned";
        return started;
    }

    /// Starts an attempt and waits until its page is open.
    Started startAndOpen(const std::string& url = page) {
        Started started = start(url);
        EXPECT_TRUE(waitUntil([&] {
            const std::vector<std::string> pages = subject_->pages();
            return !pages.empty() && pages.back() == url;
        }));
        return started;
    }

    std::unique_ptr<test::WebAuthenticationSubject> subject_ = GetParam().make();
};

template <typename T>
bool is(const Outcome& outcome) {
    return std::holds_alternative<T>(outcome);
}

} // namespace

INSTANTIATE_TEST_SUITE_P(
    ,
    WebAuthenticationSessionTest,
    testing::Values(
        Kind{
            "Fake",
            []() -> std::unique_ptr<test::WebAuthenticationSubject> {
                return std::make_unique<FakeSubject>();
            }},
        Kind{
            "FakeOpenToAnyPage",
            []() -> std::unique_ptr<test::WebAuthenticationSubject> {
                auto subject = std::make_unique<FakeSubject>();
                subject->openToAnyPage();
                return subject;
            }},
        Kind{"Real", test::makeRealWebAuthenticationSession}),
    [](const auto& kind) { return kind.param.name; });

TEST_P(WebAuthenticationSessionTest, OpensThePageAndWaits) {
    const Started started = startAndOpen();
    test::processEvents();
    EXPECT_THAT(subject_->pages(), ElementsAre(page));
    EXPECT_THAT(*started.outcomes, IsEmpty());
}

TEST_P(WebAuthenticationSessionTest, GivesTheCallbackUnchanged) {
    const Started started = startAndOpen();
    const std::string url = "orvelagent://callback?code=a%20b+%C3%A9&state='$!#fragment";
    subject_->callBack(url);
    EXPECT_EQ(std::get<std::string>(started.outcome()), url);
}

TEST_P(WebAuthenticationSessionTest, OnlyTheFirstCallbackCounts) {
    const Started started = startAndOpen();
    subject_->callBack("orvelagent://callback?code=1");
    subject_->callBack("orvelagent://callback?code=2");
    EXPECT_EQ(std::get<std::string>(started.outcome()), "orvelagent://callback?code=1");
}

TEST_P(WebAuthenticationSessionTest, ACallbackThatMayComeFromAnyPageCanBeIgnored) {
    const Started started = startAndOpen();
    const std::string ignored = "orvelagent://callback?ignored";
    const std::string accepted = "orvelagent://callback?code=1";
    subject_->callBack(ignored);
    test::processEvents();
    EXPECT_EQ(started.outcomes->empty(), subject_->isOpenToAnyPage());
    subject_->callBack(accepted);
    EXPECT_EQ(
        std::get<std::string>(started.outcome()), subject_->isOpenToAnyPage() ? accepted : ignored);
}

TEST_P(WebAuthenticationSessionTest, ACallbackThatMayComeFromAnyPageCanBeReplaced) {
    const Started started = startAndOpen();
    subject_->callBack("orvelagent://callback?replaced");
    EXPECT_EQ(is<WebAuthenticationSession::Failed>(started.outcome()), subject_->isOpenToAnyPage());
}

TEST_P(WebAuthenticationSessionTest, ReportsAPageThatCannotBeOpened) {
    subject_->removeBrowser();
    EXPECT_TRUE(is<WebAuthenticationSession::NotStarted>(start().outcome()));
}

TEST_P(WebAuthenticationSessionTest, CancellingEndsTheAttempt) {
    const Started started = startAndOpen();
    started.attempt->cancel();
    started.attempt->cancel();
    EXPECT_TRUE(is<WebAuthenticationSession::Cancelled>(started.outcome()));
}

TEST_P(WebAuthenticationSessionTest, AnAttemptCanBeCancelledAtOnce) {
    const Started started = start();
    started.attempt->cancel();
    EXPECT_TRUE(is<WebAuthenticationSession::Cancelled>(started.outcome()));
}

TEST_P(WebAuthenticationSessionTest, CancellingAfterTheEndDoesNothing) {
    const Started first = startAndOpen();
    subject_->callBack("orvelagent://callback?code=1");
    EXPECT_TRUE(is<std::string>(first.outcome()));
    const Started second = startAndOpen("https://www.example.com/2");
    first.attempt->cancel();
    test::processEvents();
    EXPECT_THAT(*second.outcomes, IsEmpty());
    subject_->callBack("orvelagent://callback?code=2");
    EXPECT_EQ(std::get<std::string>(second.outcome()), "orvelagent://callback?code=2");
}

TEST_P(WebAuthenticationSessionTest, ALaterAttemptEndsTheEarlierOne) {
    const Started first = startAndOpen();
    const Started second = startAndOpen("https://www.example.com/2");
    EXPECT_TRUE(is<WebAuthenticationSession::Cancelled>(first.outcome()));
    subject_->callBack("orvelagent://callback?code=2");
    EXPECT_EQ(std::get<std::string>(second.outcome()), "orvelagent://callback?code=2");
}

TEST_P(WebAuthenticationSessionTest, DestroyingAnAttemptDoesNotEndIt) {
    Started started = startAndOpen();
    started.attempt.reset();
    subject_->callBack("orvelagent://callback?code=1");
    EXPECT_TRUE(is<std::string>(started.outcome()));
}

TEST_P(WebAuthenticationSessionTest, DestroyingTheSessionEndsTheAttemptWithoutCallingBack) {
    const Started started = startAndOpen();
    subject_->destroySession();
    test::processEvents();
    EXPECT_THAT(*started.outcomes, IsEmpty());
}

TEST_P(WebAuthenticationSessionTest, TheCompletionMayDestroyTheSession) {
    bool isDestroyed = false;
    const auto attempt = subject_->session().start(page, scheme, screen, [&](const Outcome&) {
        subject_->destroySession();
        isDestroyed = true;
    });
    attempt->cancel();
    EXPECT_TRUE(waitUntil([&] { return isDestroyed; }));
}

} // namespace orvel
