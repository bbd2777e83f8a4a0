// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/Worker.h"

#include "tests/support/RunTask.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace orvel {

using test::runTask;

namespace {

QCoro::Task<std::thread::id> threadAfterwards(Worker* worker) {
    co_await worker->run([] {});
    co_return std::this_thread::get_id();
}

} // namespace

TEST(WorkerTest, RunsElsewhereAndResumesOnTheMainThread) {
    Worker worker;
    EXPECT_NE(
        runTask(worker.run([] { return std::this_thread::get_id(); })), std::this_thread::get_id());
    EXPECT_EQ(runTask(threadAfterwards(&worker)), std::this_thread::get_id());
}

TEST(WorkerTest, PassesTheErrorOn) {
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

TEST(WorkerTest, GivesUpWhatTheJobOwnedBeforeTheResultArrives) {
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

} // namespace orvel
