// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/ResumeOnce.h"

#include "OrvelAgent/account/AuthError.h"

#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <string>
#include <thread>
#include <vector>

namespace orvel {

namespace {

class ResumeOnceTest : public testing::Test {
protected:
    void fail(const char* message) { once_.fail(std::make_exception_ptr(AuthError(message))); }

    static std::string text(const ResumeOnce::Outcome& outcome) {
        if (const auto* url = std::get_if<std::string>(&outcome)) {
            return *url;
        }
        try {
            std::rethrow_exception(std::get<std::exception_ptr>(outcome));
        } catch (const AuthError& error) {
            return error.message();
        }
    }

    std::vector<std::string> outcomes_;
    ResumeOnce once_{[this](const ResumeOnce::Outcome& outcome) {
        outcomes_.push_back(text(outcome));
    }};
};

} // namespace

TEST_F(ResumeOnceTest, AURLResumesWhatWaits) {
    once_.succeed("orvelagent://callback");
    EXPECT_EQ(outcomes_, std::vector<std::string>{"orvelagent://callback"});
}

TEST_F(ResumeOnceTest, AStartFailureFollowedByALateCompletionResumesOnce) {
    fail("Could not open the sign-in window.");
    once_.succeed("orvelagent://callback");
    fail("late");
    EXPECT_EQ(outcomes_, std::vector<std::string>{"Could not open the sign-in window."});
}

TEST_F(ResumeOnceTest, AFailureAfterTheURLIsIgnored) {
    once_.succeed("first");
    once_.succeed("second");
    fail("late");
    EXPECT_EQ(outcomes_, std::vector<std::string>{"first"});
}

TEST(ResumeOnceThreadsTest, ReportsFromManyThreadsResumeOnce) {
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> resumed = 0;
        ResumeOnce once([&](const ResumeOnce::Outcome&) { ++resumed; });
        std::vector<std::thread> threads;
        for (int index = 0; index < 4; ++index) {
            threads.emplace_back([&once, index] {
                if (index % 2 == 0) {
                    once.succeed("url");
                } else {
                    once.fail(std::make_exception_ptr(AuthError("no")));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(resumed, 1);
    }
}

TEST(ResumeOnceReentryTest, WhatResumesMayReportAgain) {
    int resumed = 0;
    ResumeOnce* self = nullptr;
    ResumeOnce once([&](const ResumeOnce::Outcome&) {
        ++resumed;
        self->succeed("again");
    });
    self = &once;
    once.succeed("url");
    EXPECT_EQ(resumed, 1);
}

} // namespace orvel
