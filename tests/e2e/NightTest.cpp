// SPDX-License-Identifier: Apache-2.0
//
// A night of the agent in some seconds: the whole model against the real service over HTTPS. Only
// the browser, the keychain, the desktop, the disk's moods and the time are the test's.
#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/network/QueryItems.h"
#include "service/records/RecordStore.h"
#include "tests/e2e/ScanHome.h"
#include "tests/platform/RealBundle.h"
#include "tests/platform/RealURLSession.h"
#include "tests/support/RunTask.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/TestPlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using service::Fault;
using test::runTask;
using test::ScanHome;
using test::waitUntil;
using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using Browser = test::FakeWebAuthenticationSession;
using namespace std::chrono_literals;

constexpr int turns = 96;

/// The only retry delay that is longer than `CollectionLoop::blockedRecheck`.
constexpr tavrin::Seconds lastRetryDelay(45);

Fault atIngest(Fault fault) {
    fault.path = ScanHome::ingestPath;
    return fault;
}

class NightTest : public testing::Test {
protected:
    NightTest() {
        qputenv("TMPDIR", home_.temporary().c_str());
        home_.makeSample({"--messages", "700"});
        home_.service().writeBundle(home_ / "bundle");
        with_.platform.bundle = test::makeRealBundle(home_ / "bundle");
        with_.platform.urlSession = test::makeRealURLSession({home_.service().caFile()});
        with_.userDefaults.set("collection.scope", "allThreads");
        with_.browser.user = [this](const Browser::Page& page) {
            return Browser::Outcome("orvelagent://callback?code=" + codeFor(page));
        };
        startAgent();
    }

    ~NightTest() override {
        model_.reset();
        qunsetenv("TMPDIR");
    }

    /// Also replaces a running agent.
    void startAgent() {
        CollectorService::Options options;
        options.sourcePath = home_.database().string();
        model_.reset();
        model_ =
            std::make_unique<AppModel>(with_.platform, with_.updatePresenter, std::move(options));
    }

    std::string codeFor(const Browser::Page& page) {
        const std::vector<QueryItem> items = queryItems(page.url).value();
        const auto challenge = std::ranges::find(items, "challenge", &QueryItem::name);
        return home_.service().mintCode(challenge->value.value(), account_.uid);
    }

    void signIn() {
        EXPECT_FALSE(model_->auth().isSignedIn());
        runTask(model_->auth().signIn());
        EXPECT_TRUE(model_->auth().isSignedIn()) << model_->auth().lastError().value_or("");
    }

    /// How long the agent is waiting: its loop, a pause or a retry. No value while it works.
    std::optional<tavrin::Seconds> pendingWait() {
        const auto timers = with_.clock.untilTimers();
        const auto longest = std::ranges::max_element(timers);
        // The timer of the flashing icon does not count.
        return longest != timers.end() && *longest > AttentionFlash::brandDuration
                   ? std::optional(*longest)
                   : std::nullopt;
    }

    /// Waits until the loop sleeps, then advances the clock to its next turn.
    void passTurn() {
        tavrin::Seconds wait{0};
        do {
            ASSERT_TRUE(waitUntil([this] { return pendingWait().has_value(); }));
            wait = *pendingWait();
            if (const auto& error = model_->collector().lastError()) {
                errors_.insert(*error);
            }
            if (with_.clock.untilTimers().size() > 1) {
                ++turnsSignedOut_;
            }
            with_.clock.advance(wait);
        } while (wait < CollectionLoop::blockedRecheck || wait == lastRetryDelay);
    }

    /// Adds messages. Returns how many records a scan will send for them.
    std::int64_t append() {
        const auto before = home_.sendableGuids().size();
        home_.makeSample({"--append", "25"});
        return static_cast<std::int64_t>(home_.sendableGuids().size() - before);
    }

    /// The number of records in all accepted batches, duplicates included.
    std::int64_t receivedRecords() {
        std::int64_t records = 0;
        const auto all = std::numeric_limits<std::int32_t>::max();
        for (const auto& batch : home_.service().store().latestBatches(all)) {
            records += batch.records;
        }
        return records;
    }

    ScanHome home_;
    const service::Account account_ = service::sampleAccounts().front();
    test::TestPlatform with_;
    std::unique_ptr<AppModel> model_;
    std::set<std::string> errors_;
    int turnsSignedOut_ = 0;
};

} // namespace

TEST_F(NightTest, EveryMessageArrivesOnceAfterANightOfFailures) {
    service::LocalService& service = home_.service();
    std::int64_t appended = 0;
    // Records in batches that the service accepted without the agent knowing.
    std::int64_t sentAgain = 0;
    const std::map<int, std::function<void()>> events{
        {2,
         [&] {
             signIn();
         }},
        // The service is overloaded.
        {10,
         [&] {
             service.script(atIngest(Fault::answer(503, "")), 1000);
         }},
        {16,
         [&] {
             service.clearFaults();
         }},
        // There is no network, and the token expires meanwhile.
        {22,
         [&] {
             service.stop();
         }},
        // The machine sleeps for most of this outage, which lasts more than a day.
        {27,
         [&] {
             with_.clock.advance(24h);
         }},
        {32,
         [&] {
             service.start();
         }},
        // The service ends the session.
        {42,
         [&] {
             service.revokeSessions(account_.uid, "TOKEN_EXPIRED", true);
         }},
        {46,
         [&] {
             signIn();
         }},
        // The user removes this device from the account. The agent notices when its token expires.
        {50,
         [&] {
             service.revokeSessions(account_.uid, "USER_DISABLED");
         }},
        {60,
         [&] {
             signIn();
         }},
        // The disk is full: first for the settings, then for the copy, too.
        {64,
         [&] {
             with_.userDefaults.setFailsWrites(true);
         }},
        {67,
         [&] {
             with_.fileCopier.setFails(true);
         }},
        {70,
         [&] {
             with_.userDefaults.setFailsWrites(false);
             with_.fileCopier.setFails(false);
         }},
        // Replies are lost after the batch was accepted.
        {74,
         [&] {
             service.script(atIngest(Fault::acceptThenReset()), 2);
         }},
        {76,
         [&] {
             sentAgain += 2 * appended;
         }},
        {78,
         [&] {
             service.script(atIngest(Fault::acceptThenCutOff()), 8);
         }},
        {82,
         [&] {
             sentAgain += 8 * appended;
         }},
        // The agent is stopped in the middle of a batch and restarted.
        {84,
         [&] {
             sentAgain += append();
             service.script(atIngest(Fault::delayed(100ms)));
             const std::size_t before = service.requestCount(ScanHome::ingestPath);
             EXPECT_TRUE(
                 waitUntil([&] { return service.requestCount(ScanHome::ingestPath) > before; }));
             EXPECT_TRUE(model_->collector().isScanning());
             startAgent();
         }},
        {88, [&] {
             service.script(atIngest(Fault::reset()), 3);
         }}};

    for (int turn = 1; turn <= turns; ++turn) {
        if (turn % 3 == 0) {
            appended = append();
        }
        passTurn();
        if (const auto event = events.find(turn); event != events.end()) {
            event->second();
        }
    }
    ASSERT_TRUE(waitUntil([this] { return pendingWait() == CollectionLoop::scanInterval; }));

    const std::multiset<std::string> sendable = home_.sendableGuids();
    const std::set<std::string> expected(sendable.begin(), sendable.end());
    EXPECT_GT(expected.size(), 1000U);
    EXPECT_EQ(service.storedCount(), expected.size());
    EXPECT_EQ(home_.storedGuids(), expected);
    // The service stores duplicates once, so check separately that no batch was sent needlessly.
    EXPECT_GT(sentAgain, 0);
    const auto wanted = static_cast<std::int64_t>(sendable.size()) + sentAgain;
    EXPECT_TRUE(waitUntil([&] { return receivedRecords() >= wanted; }));
    EXPECT_EQ(receivedRecords(), wanted);
    EXPECT_THAT(home_.leftovers(), IsEmpty());
    EXPECT_EQ(model_->statusIcon(), StatusIcon::Brand);
    // All kinds of failures must have occurred.
    EXPECT_THAT(errors_, Contains(HasSubstr("503")));
    EXPECT_THAT(errors_, Contains(HasSubstr("connect")));
    EXPECT_THAT(errors_, Contains(HasSubstr("Could not write the settings")));
    EXPECT_THAT(errors_, Contains(HasSubstr("Could not copy")));
    EXPECT_GT(turnsSignedOut_, 6);
}

} // namespace orvel
