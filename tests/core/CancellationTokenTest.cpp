// SPDX-License-Identifier: Apache-2.0
#include "core/CancellationToken.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>

namespace tavrin {

TEST(CancellationTokenTest, ADefaultTokenIsNeverCancelled) {
    const CancellationToken token;
    bool called = false;
    const auto registration = token.onCancel([&] { called = true; });
    EXPECT_FALSE(token.isCancelled());
    EXPECT_NO_THROW(token.throwIfCancelled());
    EXPECT_FALSE(called);
}

TEST(CancellationTokenTest, CancellingReachesEveryCopyAndCallsBackOnce) {
    CancellationSource source;
    const CancellationToken token = source.token();
    const CancellationToken copy = token;
    int calls = 0;
    const auto registration = copy.onCancel([&] { ++calls; });
    source.cancel();
    source.cancel();
    EXPECT_TRUE(token.isCancelled());
    EXPECT_THROW(copy.throwIfCancelled(), TaskCancelled);
    EXPECT_EQ(calls, 1);
}

TEST(CancellationTokenTest, EveryCallbackIsCalled) {
    CancellationSource source;
    int calls = 0;
    const auto first = source.token().onCancel([&] { calls += 1; });
    const auto second = source.token().onCancel([&] { calls += 10; });
    source.cancel();
    EXPECT_EQ(calls, 11);
}

TEST(CancellationTokenTest, ACallbackRegisteredAfterCancellingIsCalledAtOnce) {
    CancellationSource source;
    source.cancel();
    bool called = false;
    const auto registration = source.token().onCancel([&] { called = true; });
    EXPECT_TRUE(called);
}

TEST(CancellationTokenTest, TheCallbackOfADestroyedRegistrationIsNotCalled) {
    CancellationSource source;
    bool called = false;
    {
        const auto registration = source.token().onCancel([&] { called = true; });
    }
    source.cancel();
    EXPECT_FALSE(called);
}

TEST(CancellationTokenTest, AssigningToARegistrationEndsTheOldOne) {
    CancellationSource source;
    int calls = 0;
    auto registration = source.token().onCancel([&] { calls += 1; });
    registration = source.token().onCancel([&] { calls += 10; });
    source.cancel();
    EXPECT_EQ(calls, 10);
}

TEST(CancellationTokenTest, ACallbackCanEndItsOwnAndOtherRegistrations) {
    CancellationSource source;
    bool secondCalled = false;
    CancellationToken::Registration first;
    CancellationToken::Registration second;
    first = source.token().onCancel([&] {
        first = {};
        second = {};
    });
    second = source.token().onCancel([&] { secondCalled = true; });
    source.cancel();
    EXPECT_FALSE(secondCalled);
}

TEST(CancellationTokenTest, ACallbackMayDestroyTheSource) {
    std::optional<CancellationSource> source(std::in_place);
    const CancellationToken token = source->token();
    const auto registration = token.onCancel([&] { source.reset(); });
    source->cancel();
    EXPECT_TRUE(token.isCancelled());
}

TEST(CancellationTokenTest, DestroyingARegistrationWaitsForItsCallbackOnAnotherThread) {
    CancellationSource source;
    std::atomic<bool> started = false;
    std::atomic<bool> mayEnd = false;
    std::atomic<bool> ended = false;
    auto registration = source.token().onCancel([&] {
        started = true;
        mayEnd.wait(false);
        ended = true;
    });
    std::thread canceller([&] { source.cancel(); });
    while (!started) {
        std::this_thread::yield();
    }
    std::thread releaser([&] {
        mayEnd = true;
        mayEnd.notify_all();
    });
    registration = {};
    EXPECT_TRUE(ended);
    canceller.join();
    releaser.join();
}

TEST(LinkedCancellationTest, EitherTokenCancelsIt) {
    for (const bool isFirst : {true, false}) {
        CancellationSource first;
        CancellationSource second;
        const LinkedCancellation linked(first.token(), second.token());
        EXPECT_FALSE(linked.token().isCancelled());
        (isFirst ? first : second).cancel();
        EXPECT_TRUE(linked.token().isCancelled());
        EXPECT_NE(first.token().isCancelled(), second.token().isCancelled());
    }
}

TEST(LinkedCancellationTest, ACancelledTokenCancelsItAtOnce) {
    CancellationSource source;
    source.cancel();
    EXPECT_TRUE(LinkedCancellation({}, source.token()).token().isCancelled());
}

} // namespace tavrin
