// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/Worker.h"

#include "tests/support/RunTask.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace orvel {

using test::runTask;

namespace {

QCoro::Task<std::thread::id> threadAfterwards(Worker* worker) {
    co_await worker->run([] {});
    co_return std::this_thread::get_id();
}

/// Counts the jobs that have been settled.
QCoro::Task<> countJobs(Worker* worker, int jobs, int* settled) {
    for (int job = 0; job < jobs; ++job) {
        co_await worker->run([] {});
        ++*settled;
    }
}

QCoro::Task<> destroyAfterAJob(std::unique_ptr<Worker>* worker) {
    co_await (*worker)->run([] {});
    worker->reset();
}

} // namespace

TEST(WorkerTest, RunsOnTheWorkerThreadAndResumesOnTheMainThread) {
    Worker worker;
    EXPECT_NE(
        runTask(worker.run([] { return std::this_thread::get_id(); })), std::this_thread::get_id());
    EXPECT_EQ(runTask(threadAfterwards(&worker)), std::this_thread::get_id());
}

TEST(WorkerTest, RethrowsTheException) {
    Worker worker;
    const auto fail = []() -> int {
        throw std::runtime_error("no disk");
    };
    try {
        runTask(worker.run(fail));
        FAIL() << "nothing was thrown";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "no disk");
    }
}

TEST(WorkerTest, DestroysTheJobBeforeTheResultArrives) {
    Worker worker;
    auto owned = std::make_shared<int>(1);
    const std::weak_ptr<int> watched = owned;
    runTask(worker.run([mine = std::move(owned)] { return *mine; }));
    EXPECT_TRUE(watched.expired());
}

TEST(WorkerTest, RunsJobsInOrder) {
    Worker worker;
    const auto order = std::make_shared<std::string>();
    auto first = worker.run([order] { *order += "1"; });
    auto second = worker.run([order] { *order += "2"; });
    auto third = worker.run([order] { return *order += "3"; });
    EXPECT_EQ(runTask(std::move(third)), "123");
}

TEST(WorkerTest, StoppingRunsEveryJobInOrderAndSettlesEachOnce) {
    constexpr int jobs = 200;
    Worker worker;
    const auto order = std::make_shared<std::vector<int>>();
    int settled = 0;
    std::vector<QCoro::Task<>> tasks;
    for (int job = 0; job < jobs; ++job) {
        tasks.push_back(worker.run([order, job] { order->push_back(job); }));
        tasks.push_back(countJobs(&worker, 1, &settled));
    }
    worker.stop();
    std::vector<int> expected(jobs);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(*order, expected);
    EXPECT_EQ(settled, jobs);
    test::processEvents();
    EXPECT_EQ(settled, jobs);
}

TEST(WorkerTest, StoppingSettlesAnExecutedJob) {
    Worker worker;
    std::promise<void> second;
    int settled = 0;
    const auto counting = countJobs(&worker, 1, &settled);
    // When the second job starts, the first one is executed but not yet settled.
    const auto next = worker.run([&second] { second.set_value(); });
    second.get_future().wait();
    EXPECT_EQ(settled, 0);
    worker.stop();
    EXPECT_EQ(settled, 1);
    test::processEvents();
    EXPECT_EQ(settled, 1);
}

TEST(WorkerTest, JobsAddedWhileStoppingAreRun) {
    Worker worker;
    int settled = 0;
    const auto counting = countJobs(&worker, 3, &settled);
    worker.stop();
    EXPECT_EQ(settled, 3);
}

TEST(WorkerTest, StoppingRethrowsExceptions) {
    Worker worker;
    const auto fail = []() -> int {
        throw std::runtime_error("no disk");
    };
    auto failing = worker.run(fail);
    worker.stop();
    EXPECT_THROW(runTask(std::move(failing)), std::runtime_error);
}

TEST(WorkerTest, AfterStoppingItRunsJobsOnTheMainThread) {
    Worker worker;
    worker.stop();
    int settled = 0;
    const auto counting = countJobs(&worker, 2, &settled);
    EXPECT_EQ(settled, 2);
    EXPECT_EQ(
        runTask(worker.run([] { return std::this_thread::get_id(); })), std::this_thread::get_id());
    worker.stop();
}

TEST(WorkerTest, DestroyingItSettlesEveryJob) {
    int settled = 0;
    auto worker = std::make_unique<Worker>();
    const auto counting = countJobs(worker.get(), 1, &settled);
    worker.reset();
    EXPECT_EQ(settled, 1);
}

TEST(WorkerTest, AWaiterMayDestroyIt) {
    auto worker = std::make_unique<Worker>();
    runTask(destroyAfterAJob(&worker));
    EXPECT_FALSE(worker);
}

} // namespace orvel
