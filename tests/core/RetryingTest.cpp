// SPDX-License-Identifier: Apache-2.0
#include "core/Retrying.h"

#include "tests/support/RunTask.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tavrin {

namespace {

using orvel::test::runTask;

/// Records the calls of the routine, in order.
struct Trace {
    std::vector<std::string> steps;
    int operations = 0;
    /// One per attempt. The last one also applies to further attempts. Null means success.
    std::vector<std::exception_ptr> outcomes;
    std::exception_ptr sleepError;
};

QCoro::Task<int> attempt(std::shared_ptr<Trace> trace) {
    const auto index = std::min<std::size_t>(
        static_cast<std::size_t>(trace->operations), trace->outcomes.size() - 1);
    ++trace->operations;
    if (trace->outcomes[index]) {
        std::rethrow_exception(trace->outcomes[index]);
    }
    co_return 7;
}

QCoro::Task<void> pause(std::shared_ptr<Trace> trace, double seconds) {
    trace->steps.push_back("sleep " + std::to_string(seconds));
    if (trace->sleepError) {
        std::rethrow_exception(trace->sleepError);
    }
    co_return;
}

QCoro::Task<int>
run(std::shared_ptr<Trace> trace,
    std::vector<double> delays,
    std::function<bool(std::exception_ptr)> shouldRetry) {
    return retrying<QCoro::Task, int>(
        std::move(delays),
        std::move(shouldRetry),
        [trace](double seconds) { return pause(trace, seconds); },
        [trace](const std::exception_ptr&, std::size_t retry, double seconds) {
            trace->steps.push_back(
                "retry " + std::to_string(retry) + " " + std::to_string(seconds));
        },
        [trace] { return attempt(trace); });
}

bool always(const std::exception_ptr&) {
    return true;
}

bool never(const std::exception_ptr&) {
    return false;
}

std::exception_ptr failure(const char* text) {
    return std::make_exception_ptr(std::runtime_error(text));
}

std::string errorOf(QCoro::Task<int> task) {
    try {
        runTask(std::move(task));
        return "no error";
    } catch (const std::exception& error) {
        return error.what();
    }
}

} // namespace

TEST(RetryingTest, ImmediateSuccessNeitherPausesNorReports) {
    const auto trace = std::make_shared<Trace>();
    trace->outcomes = {nullptr};
    EXPECT_EQ(runTask(run(trace, {5, 15, 45}, always)), 7);
    EXPECT_EQ(trace->operations, 1);
    EXPECT_TRUE(trace->steps.empty());
}

TEST(RetryingTest, PausesFollowTheListAfterEachReport) {
    const auto trace = std::make_shared<Trace>();
    trace->outcomes = {failure("a"), failure("b"), failure("c"), nullptr};
    EXPECT_EQ(runTask(run(trace, {5, 15, 45}, always)), 7);
    EXPECT_EQ(
        trace->steps,
        (std::vector<std::string>{
            "retry 1 5.000000",
            "sleep 5.000000",
            "retry 2 15.000000",
            "sleep 15.000000",
            "retry 3 45.000000",
            "sleep 45.000000"}));
}

TEST(RetryingTest, AfterTheLastPauseTheNextFailureIsThrownUnchanged) {
    const auto trace = std::make_shared<Trace>();
    trace->outcomes = {failure("a"), failure("b"), failure("c"), failure("the fourth")};
    EXPECT_EQ(errorOf(run(trace, {5, 15, 45}, always)), "the fourth");
    EXPECT_EQ(trace->operations, 4);
}

TEST(RetryingTest, WithoutPausesTheOperationRunsOnce) {
    const auto trace = std::make_shared<Trace>();
    trace->outcomes = {failure("only")};
    EXPECT_EQ(errorOf(run(trace, {}, always)), "only");
    EXPECT_EQ(trace->operations, 1);
    EXPECT_TRUE(trace->steps.empty());
}

TEST(RetryingTest, APermanentFailureIsThrownAtOnce) {
    const auto trace = std::make_shared<Trace>();
    trace->outcomes = {failure("rejected")};
    EXPECT_EQ(errorOf(run(trace, {5}, never)), "rejected");
    EXPECT_EQ(trace->operations, 1);
    EXPECT_TRUE(trace->steps.empty());
}

TEST(RetryingTest, ACancellationIsThrownAtOnceEvenIfItWouldBeRetried) {
    const auto trace = std::make_shared<Trace>();
    trace->outcomes = {std::make_exception_ptr(TaskCancelled())};
    EXPECT_THROW(runTask(run(trace, {5}, always)), TaskCancelled);
    EXPECT_EQ(trace->operations, 1);
    EXPECT_TRUE(trace->steps.empty());
}

TEST(RetryingTest, AnErrorOfThePauseReplacesTheOperationsError) {
    const auto trace = std::make_shared<Trace>();
    trace->outcomes = {failure("dropped")};
    trace->sleepError = std::make_exception_ptr(TaskCancelled());
    EXPECT_THROW(runTask(run(trace, {5}, always)), TaskCancelled);
    EXPECT_EQ(trace->operations, 1);
}

} // namespace tavrin
