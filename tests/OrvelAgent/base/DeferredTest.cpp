// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Deferred.h"

#include "tests/support/RunTask.h"

#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace orvel {

namespace {

using test::runTask;

constexpr const char* url = "orvelagent://callback";

std::exception_ptr failure(const char* message) {
    return std::make_exception_ptr(std::runtime_error(message));
}

/// Calls back with the value or the error's text.
QCoro::Task<> report(
    Deferred<std::string> result,
    std::function<void(std::string)> outcome,
    tavrin::CancellationToken cancellation = {}) {
    std::string text;
    try {
        co_await result.settled(std::move(cancellation));
        text = result.value();
    } catch (const std::exception& error) {
        text = error.what();
    }
    outcome(text);
}

class DeferredTest : public testing::Test {
protected:
    QCoro::Task<> reporting(tavrin::CancellationToken cancellation = {}) {
        return report(
            result_,
            [this](std::string outcome) { outcomes_.push_back(std::move(outcome)); },
            std::move(cancellation));
    }

    using Outcomes = std::vector<std::string>;

    const Deferred<std::string> result_;
    Outcomes outcomes_;
    tavrin::CancellationSource cancellation_;
};

} // namespace

TEST_F(DeferredTest, AValueResumesTheWaiter) {
    const auto waiting = reporting();
    result_.resolve(url);
    EXPECT_EQ(outcomes_, Outcomes{url});
}

TEST_F(DeferredTest, AFailureFollowedByALateValueResumesOnce) {
    const auto waiting = reporting();
    result_.reject(failure("Could not open the sign-in window."));
    result_.resolve(url);
    result_.reject(failure("late"));
    EXPECT_EQ(outcomes_, Outcomes{"Could not open the sign-in window."});
}

TEST_F(DeferredTest, AFailureAfterTheValueIsIgnored) {
    const auto waiting = reporting();
    result_.resolve("first");
    result_.resolve("second");
    result_.reject(failure("late"));
    EXPECT_EQ(outcomes_, Outcomes{"first"});
    EXPECT_EQ(result_.value(), "first");
}

TEST_F(DeferredTest, SettlingOnManyThreadsResumesOnce) {
    for (int round = 0; round < 50; ++round) {
        const Deferred<std::string> result;
        std::atomic<int> resumed = 0;
        const auto waiting = report(result, [&resumed](const std::string&) { ++resumed; });
        std::vector<std::thread> threads;
        for (int index = 0; index < 4; ++index) {
            threads.emplace_back([result, index] {
                if (index % 2 == 0) {
                    result.resolve(url);
                } else {
                    result.reject(failure("no"));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(resumed, 1);
    }
}

TEST_F(DeferredTest, AResumedWaiterMaySettleAgain) {
    int resumed = 0;
    const auto waiting = report(result_, [this, &resumed](const std::string&) {
        ++resumed;
        result_.resolve("again");
    });
    result_.resolve(url);
    EXPECT_EQ(resumed, 1);
}

TEST_F(DeferredTest, SeveralWaitersGetOneResult) {
    const auto first = reporting();
    const auto second = reporting();
    EXPECT_FALSE(result_.isSettled());
    result_.resolve(url);
    const auto late = reporting();
    EXPECT_TRUE(result_.isSettled());
    EXPECT_EQ(outcomes_, (Outcomes{url, url, url}));
}

TEST_F(DeferredTest, CancellingEndsOnlyItsOwnWait) {
    const auto cancelled = reporting(cancellation_.token());
    const auto waiting = reporting();
    cancellation_.cancel();
    EXPECT_EQ(outcomes_, Outcomes{tavrin::TaskCancelled().what()});
    result_.resolve(url);
    EXPECT_EQ(outcomes_, (Outcomes{tavrin::TaskCancelled().what(), url}));
}

TEST_F(DeferredTest, ACancelledTokenPreventsTheWait) {
    cancellation_.cancel();
    EXPECT_THROW(runTask(result_.settled(cancellation_.token())), tavrin::TaskCancelled);
}

TEST_F(DeferredTest, AnExistingResultIsReturnedDespiteACancellation) {
    result_.resolve(url);
    cancellation_.cancel();
    EXPECT_NO_THROW(runTask(result_.settled(cancellation_.token())));
}

TEST_F(DeferredTest, TheFirstResumedWaiterMayCancelTheNext) {
    const auto first = report(result_, [this](const std::string&) { cancellation_.cancel(); });
    const auto second = reporting(cancellation_.token());
    result_.resolve(url);
    EXPECT_EQ(outcomes_, Outcomes{tavrin::TaskCancelled().what()});
}

} // namespace orvel
