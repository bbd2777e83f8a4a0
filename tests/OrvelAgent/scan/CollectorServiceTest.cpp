// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/CollectorService.h"

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/network/TokenUnavailable.h"
#include "core/Errors.h"
#include "core/messages/ChatDatabaseSnapshot.h"
#include "core/messages/SnapshotDirectory.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/fakes/FakeBundle.h"
#include "tests/support/fakes/FakeURLSession.h"
#include "tests/support/fakes/InMemoryUserDefaults.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/PlainFileCopier.h"
#include "tests/support/fakes/RecordingLogStore.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"
#include "tests/support/messages/RowIDDamage.h"

#include <QTimer>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <future>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using test::FakeURLSession;
using test::runTask;
using ScanSummary = CollectorService::ScanSummary;
using tavrin::CollectionMode;
using tavrin::ThreadScope;

constexpr std::int64_t cursorAtStart = 9223372036854775807;

QCoro::Task<std::optional<tavrin::Secret>> oneToken(bool isMissing) {
    if (isMissing) {
        throw TokenUnavailable("There is no token.");
    }
    const std::optional<tavrin::Secret> token = tavrin::Secret("token");
    co_return token;
}

class CollectorServiceTest : public testing::Test {
protected:
    CollectorServiceTest() : database_(directory_ / "chat.db") {
        qputenv("TMPDIR", temporary_.path().c_str());
        known_ = database_.addHandle("+14155550134");
        knownChat_ = database_.addChat({.guid = "known", .participants = {known_}});
        const auto stranger = database_.addHandle("+14155550199");
        strangerChat_ = database_.addChat({.guid = "stranger", .participants = {stranger}});
        session_.setHandler([this](const URLRequest& request) { return accept(request); });
        driver_.callOnTimeout([this] { passTime(); });
    }

    ~CollectorServiceTest() override { qunsetenv("TMPDIR"); }

    void addMessages(int count, bool isKnown = true) {
        database_.inOneTransaction([&] {
            for (int i = 0; i < count; ++i) {
                ++messages_;
                database_.addMessage(
                    {.rowID = messages_,
                     .guid = fmt::format("message-{}", messages_),
                     .text = fmt::format("text {}", messages_),
                     .chats = {isKnown ? knownChat_ : strangerChat_}});
            }
        });
    }

    std::optional<ScanSummary> scan(
        ThreadScope scope = ThreadScope::AllThreads,
        ContactBridge::IdentityIndex index = {},
        CollectionMode mode = CollectionMode::WithBodies,
        std::optional<tavrin::Date> since = std::nullopt) {
        driver_.start(0);
        ScanPlan plan = planOf(scope, mode);
        plan.identities = std::make_shared<const ContactBridge::IdentityIndex>(std::move(index));
        plan.since = since;
        auto summary = runTask(service_.runScan(std::move(plan), cancellation_.token()));
        driver_.stop();
        return summary;
    }

    ScanPlan planOf(ThreadScope scope, CollectionMode mode = CollectionMode::WithBodies) {
        ScanPlan plan;
        plan.session.account = account_;
        plan.session.tokenProvider = [this] {
            return oneToken(isTokenMissing_);
        };
        plan.startedAt = clock_.now();
        plan.resets = service_.resets();
        plan.mode = mode;
        plan.scope = scope;
        plan.knownHandles =
            std::make_shared<const ScanPlan::HintSet>(ScanPlan::HintSet{"4155550134"});
        plan.addressBook = addressBook_;
        return plan;
    }

    /// Accepts and stores uploads.
    FakeURLSession::Answer accept(const URLRequest& request) {
        const boost::json::value payload = boost::json::parse(request.body.value());
        const boost::json::array& records = payload.at("records").as_array();
        for (const boost::json::value& record : records) {
            received_.emplace_back(record.at("guid").as_string());
        }
        lastPayload_ = payload;
        watermarks_.push_back(payload.at("watermark").as_int64());
        URLResponse response;
        response.status = 200;
        response.body = fmt::format(
            R"({{"ok":true,"data":{{"acceptedWatermark":{},"accepted":{}}}}})",
            payload.at("watermark").as_int64(),
            records.size());
        if (onBatch_) {
            onBatch_();
        }
        return response;
    }

    /// Advances the clock whenever the service waits.
    void passTime() {
        if (const auto wait = clock_.untilNextTimer()) {
            waits_.push_back(wait->count());
            if (onWait_) {
                onWait_();
            } else {
                clock_.advance(*wait);
            }
        }
    }

    /// Stopped scans have no error.
    void expectStopped(const std::optional<ScanSummary>& summary) {
        EXPECT_EQ(summary.value().error, std::nullopt);
        EXPECT_EQ(service_.lastError(), std::nullopt);
        EXPECT_EQ(logLines(LogLevel::Error), std::vector<std::string>());
        const auto lines = logLines(LogLevel::Info);
        EXPECT_EQ(std::ranges::count(lines, "scan stopped"), 1);
    }

    std::vector<std::string> logLines(LogLevel level) {
        std::vector<std::string> lines;
        for (const auto& entry : log_.lines()) {
            if (entry.level == level && entry.category == "collector") {
                lines.push_back(entry.message);
            }
        }
        return lines;
    }

    test::TemporaryDirectory directory_;
    test::TemporaryDirectory temporary_;
    test::MessagesDatabaseBuilder database_;
    std::int64_t known_ = 0;
    std::int64_t knownChat_ = 0;
    std::int64_t strangerChat_ = 0;
    std::int64_t messages_ = 0;

    test::InMemoryUserDefaults defaults_;
    test::ManualClock clock_;
    test::PlainFileCopier copier_;
    test::RecordingLogStore log_;
    test::FakeBundle bundle_;
    FakeURLSession session_;
    Worker worker_;
    tavrin::CancellationSource cancellation_;
    WatermarkStore store_{defaults_};
    IngestClient ingest_{
        APIClient(
            session_,
            worker_,
            Configuration(bundle_),
            "https://api.test.example",
            {},
            IngestClient::requestTimeout),
        "0.0.0"};
    std::shared_ptr<tavrin::LiveSnapshots> live_ = std::make_shared<tavrin::LiveSnapshots>();
    CollectorService service_{
        store_,
        ingest_,
        copier_,
        clock_,
        worker_,
        log_,
        {.sourcePath = (directory_ / "chat.db").string(), .liveSnapshots = live_}};

    std::string account_ = "uid-1";
    bool isTokenMissing_ = false;
    ScanPlan::AddressBook addressBook_ = ScanPlan::AddressBook::Unused;
    QTimer driver_;
    std::vector<double> waits_;
    std::vector<std::string> received_;
    boost::json::value lastPayload_;
    std::vector<std::int64_t> watermarks_;
    std::function<void()> onBatch_;
    std::function<void()> onWait_;
};

} // namespace

TEST_F(CollectorServiceTest, AFreshScanWalksBackThroughHistoryAndThenForward) {
    addMessages(1200);
    const auto summary = scan();
    ASSERT_TRUE(summary);
    EXPECT_FALSE(summary->error) << *summary->error;
    EXPECT_EQ(summary->scanned, 1200);
    EXPECT_EQ(summary->collected, 1200);
    EXPECT_EQ(summary->uploaded, 1200);
    EXPECT_EQ(summary->watermark, 1200);
    EXPECT_EQ(summary->mode, CollectionMode::WithBodies);
    EXPECT_EQ(session_.requests().size(), 3U);
    EXPECT_EQ(watermarks_, (std::vector<std::int64_t>{1200, 700, 200}));
    EXPECT_EQ(received_.front(), "message-1200");
    EXPECT_EQ(received_.back(), "message-1");
    EXPECT_EQ(std::set(received_.begin(), received_.end()).size(), 1200U);
    EXPECT_TRUE(store_.isBackfillDone());
    EXPECT_EQ(store_.backfillCursor(), 1);
    EXPECT_EQ(store_.watermark(), 1200);
}

TEST_F(CollectorServiceTest, ItPausesTenSecondsAfterEachSentBatchOfHistory) {
    addMessages(1200);
    const auto summary = scan();
    EXPECT_EQ(waits_, (std::vector<double>{10, 10}));
    EXPECT_EQ((summary->finishedAt - summary->startedAt).count(), 20);
}

TEST_F(CollectorServiceTest, ItDoesNotPauseAfterABatchWithNothingToSend) {
    addMessages(600, false);
    addMessages(500, true);
    const auto summary = scan(ThreadScope::KnownContactsOnly);
    EXPECT_EQ(summary->uploaded, 500);
    EXPECT_EQ(summary->skippedOutOfScope, 600);
    EXPECT_EQ(waits_, (std::vector<double>{10}));
}

TEST_F(CollectorServiceTest, NewMessagesAreSentForwardWithoutAPause) {
    addMessages(10);
    scan();
    addMessages(1100);
    received_.clear();
    waits_.clear();
    const auto summary = scan();
    EXPECT_EQ(summary->uploaded, 1100);
    EXPECT_EQ(received_.front(), "message-11");
    EXPECT_EQ(received_.back(), "message-1110");
    EXPECT_TRUE(waits_.empty());
    EXPECT_EQ(store_.watermark(), 1110);
    EXPECT_EQ(lastPayload_.at("watermark").as_int64(), 1110);
}

TEST_F(CollectorServiceTest, WithoutNewMessagesNothingIsSentAndProgressIsUnchanged) {
    addMessages(10);
    scan();
    const auto requests = session_.requests().size();
    const auto summary = scan();
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->scanned, 0);
    EXPECT_EQ(summary->collected, 0);
    EXPECT_EQ(summary->uploaded, 0);
    EXPECT_EQ(summary->watermark, 10);
    EXPECT_EQ(session_.requests().size(), requests);
}

TEST_F(CollectorServiceTest, AScanOfAnEmptyDatabaseSucceeds) {
    const auto summary = scan();
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->scanned, 0);
    EXPECT_TRUE(store_.isBackfillDone());
    EXPECT_EQ(store_.watermark(), 0);
    EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
}

TEST_F(CollectorServiceTest, EveryRowIsCounted) {
    addMessages(2);
    addMessages(1, false);
    database_.addMessage({.chats = {knownChat_}, .itemType = 1});
    database_.addMessage({.attributedBody = "no text", .chats = {knownChat_}});
    const auto summary = scan(ThreadScope::KnownContactsOnly);
    EXPECT_EQ(summary->scanned, 5);
    EXPECT_EQ(summary->collected, 3);
    EXPECT_EQ(summary->skippedOutOfScope, 1);
    EXPECT_EQ(summary->skippedUndecodable, 1);
    EXPECT_EQ(summary->skippedNotUserContent, 1);
    EXPECT_EQ(summary->uploaded, 3);
}

TEST_F(CollectorServiceTest, ProgressIsSavedInOrder) {
    addMessages(3);
    scan();
    EXPECT_EQ(
        defaults_.takeChangedKeys(),
        (std::vector<std::string>{
            "messages.copies.folder",
            "messages.progress.owner",
            "messages.last24h.count",
            "messages.last24h.at",
            "messages.rowid.watermark",
            "messages.backfill.cursor",
            "messages.backfill.done",
            "messages.rowid.watermark"}));
}

TEST_F(CollectorServiceTest, ABatchOutOfScopeMovesTheCursorAndSendsNothing) {
    addMessages(700, false);
    const auto summary = scan(ThreadScope::KnownContactsOnly);
    EXPECT_EQ(summary->skippedOutOfScope, 700);
    EXPECT_EQ(summary->uploaded, 0);
    EXPECT_TRUE(session_.requests().empty());
    EXPECT_EQ(store_.backfillCursor(), 1);
    EXPECT_EQ(store_.watermark(), 700);
    EXPECT_TRUE(store_.isBackfillDone());
}

TEST_F(CollectorServiceTest, MetadataOnlySendsNoText) {
    addMessages(3);
    scan(ThreadScope::AllThreads, {}, CollectionMode::MetadataOnly);
    EXPECT_EQ(session_.requests().at(0).body->find("text "), std::string::npos);
    EXPECT_FALSE(lastPayload_.at("records").at(0).as_object().contains("body"));
}

TEST_F(CollectorServiceTest, OnlyMessagesSinceTheGivenTimeAreSent) {
    addMessages(3);
    const tavrin::Date later{tavrin::Seconds(1'800'000'000)};
    const auto summary = scan(ThreadScope::AllThreads, {}, CollectionMode::WithBodies, later);
    EXPECT_EQ(summary->scanned, 0);
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(CollectorServiceTest, RecordsCarryTheNamesOfTheIndex) {
    addMessages(1);
    ContactBridge::Identity identity;
    identity.name = "Known Person";
    identity.emails = {"known@example.com"};
    scan(ThreadScope::AllThreads, {{"4155550134", identity}});
    const auto& record = lastPayload_.at("records").at(0);
    EXPECT_EQ(record.at("participantNames").at("+14155550134").as_string(), "Known Person");
    EXPECT_EQ(
        record.at("participantEmails").at("+14155550134").at(0).as_string(), "known@example.com");
}

TEST_F(CollectorServiceTest, TheSameBatchIsSentAgainAfterATransientFailure) {
    addMessages(2);
    session_.enqueue(429, "");
    session_.enqueue(503, R"({"ok":false,"error":"busy"})");
    session_.enqueue(tavrin::URLErrorCode::NetworkConnectionLost);
    const auto summary = scan();
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->uploaded, 2);
    ASSERT_EQ(session_.requests().size(), 4U);
    EXPECT_EQ(session_.requests()[0].body, session_.requests()[3].body);
    EXPECT_EQ(waits_, (std::vector<double>{5, 15, 45}));
    const auto lines = logLines(LogLevel::Default);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(
        lines[0], "batch upload failed (HTTP 429); resending the same batch in 5.0s (retry 1)");
    EXPECT_EQ(lines[1], "batch upload failed (busy); resending the same batch in 15.0s (retry 2)");
    EXPECT_TRUE(lines[2].ends_with("resending the same batch in 45.0s (retry 3)")) << lines[2];
}

TEST_F(CollectorServiceTest, FourFailuresEndTheScanAndSaveNoProgress) {
    addMessages(600);
    session_.enqueue(200, R"({"ok":true,"data":{"acceptedWatermark":600,"accepted":500}})");
    for (int i = 0; i < 4; ++i) {
        session_.enqueue(500, R"({"ok":false,"error":"down"})");
    }
    const auto summary = scan();
    EXPECT_EQ(summary->error, "down");
    EXPECT_EQ(summary->uploaded, 500);
    EXPECT_EQ(summary->scanned, 600);
    EXPECT_EQ(service_.lastError(), "down");
    EXPECT_EQ(session_.requests().size(), 5U);
    EXPECT_EQ(store_.backfillCursor(), 101);
    EXPECT_EQ(store_.watermark(), 600);
    EXPECT_FALSE(store_.isBackfillDone());
    EXPECT_EQ(logLines(LogLevel::Error), std::vector<std::string>{"scan failed: down"});

    const auto next = scan();
    EXPECT_FALSE(next->error);
    EXPECT_EQ(next->uploaded, 100);
    EXPECT_EQ(session_.requests()[4].body, session_.requests()[5].body);
    EXPECT_FALSE(service_.lastError());
}

TEST_F(CollectorServiceTest, AFailedFirstBatchSavesNoProgress) {
    addMessages(3);
    session_.enqueue(400, R"({"ok":false,"error":"bad"})");
    scan();
    EXPECT_EQ(store_.watermark(), 0);
    EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
    EXPECT_FALSE(store_.isBackfillDone());
}

TEST_F(CollectorServiceTest, AFailedUploadOfNewMessagesSavesNoProgress) {
    addMessages(3);
    scan();
    addMessages(1);
    session_.enqueue(400, R"({"ok":false,"error":"bad"})");
    EXPECT_EQ(scan()->error, "bad");
    EXPECT_EQ(store_.watermark(), 3);
    EXPECT_EQ(scan()->uploaded, 1);
}

TEST_F(CollectorServiceTest, ABatchWithoutATokenIsSentLater) {
    addMessages(3);
    isTokenMissing_ = true;
    onWait_ = [this] {
        onWait_ = {};
        isTokenMissing_ = false;
    };
    EXPECT_EQ(scan()->uploaded, 3);
    EXPECT_EQ(session_.requests().size(), 1U);
    EXPECT_EQ(waits_, (std::vector<double>{5, 5}));
}

TEST_F(CollectorServiceTest, ARefusalIsNotRetried) {
    addMessages(3);
    for (const int status : {400, 401, 408}) {
        session_.enqueue(status, "");
        const auto before = session_.requests().size();
        EXPECT_EQ(scan()->error, fmt::format("HTTP {}", status));
        EXPECT_EQ(session_.requests().size(), before + 1) << status;
    }
    EXPECT_TRUE(waits_.empty());
}

TEST_F(CollectorServiceTest, ABatchThatTheServiceRefusesAsTooLargeIsSentInParts) {
    addMessages(4);
    scan();
    addMessages(4);
    received_.clear();
    session_.enqueue(413, "");
    const auto summary = scan();
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->uploaded, 4);
    EXPECT_EQ(
        received_, (std::vector<std::string>{"message-5", "message-6", "message-7", "message-8"}));
    EXPECT_EQ(store_.watermark(), 8);
}

TEST_F(CollectorServiceTest, NoProgressIsSavedBeforeAllPartsOfABatchAreAccepted) {
    addMessages(4);
    const auto refuseTheSecondPart = [this] {
        onBatch_ = [this] {
            onBatch_ = {};
            session_.enqueue(400, R"({"ok":false,"error":"bad"})");
        };
        session_.enqueue(413, "");
    };
    refuseTheSecondPart();
    EXPECT_EQ(scan()->error, "bad");
    EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
    EXPECT_EQ(store_.watermark(), 0);
    EXPECT_EQ(scan()->uploaded, 4);

    addMessages(4);
    refuseTheSecondPart();
    EXPECT_EQ(scan()->error, "bad");
    EXPECT_EQ(store_.watermark(), 4);
    EXPECT_EQ(scan()->uploaded, 4);
    EXPECT_EQ(store_.watermark(), 8);
}

TEST_F(CollectorServiceTest, AnUntrustedCertificateIsNotRetried) {
    addMessages(3);
    session_.enqueue(tavrin::URLErrorCode::ServerCertificateUntrusted);
    EXPECT_TRUE(scan()->error);
    EXPECT_EQ(session_.requests().size(), 1U);
}

TEST_F(CollectorServiceTest, ARefusedCallChangesNoState) {
    addMessages(600);
    service_.setPaused(true);
    EXPECT_FALSE(scan());
    EXPECT_TRUE(service_.history().empty());
    EXPECT_TRUE(log_.lines().empty());
    EXPECT_TRUE(session_.requests().empty());

    service_.setPaused(false);
    std::optional<bool> wasRefused;
    onBatch_ = [&] {
        if (!wasRefused) {
            const auto lines = log_.lines().size();
            wasRefused = !runTask(service_.runScan(planOf(ThreadScope::AllThreads)));
            EXPECT_EQ(log_.lines().size(), lines);
            EXPECT_TRUE(service_.isScanning());
        }
    };
    EXPECT_EQ(scan()->uploaded, 600);
    EXPECT_EQ(wasRefused, true);
    EXPECT_EQ(service_.history().size(), 1U);
}

TEST_F(CollectorServiceTest, PausingStopsBeforeTheNextBatchAndRecordsWhatWasDone) {
    addMessages(1200);
    onBatch_ = [&] {
        service_.setPaused(true);
    };
    const auto summary = scan();
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->uploaded, 500);
    EXPECT_EQ(store_.backfillCursor(), 701);
    EXPECT_FALSE(store_.isBackfillDone());
    EXPECT_FALSE(service_.isScanning());

    onBatch_ = {};
    service_.setPaused(false);
    EXPECT_EQ(scan()->uploaded, 700);
}

TEST_F(CollectorServiceTest, PausingStopsBeforeTheNextBatchOfNewMessages) {
    addMessages(3);
    scan();
    addMessages(1200);
    onBatch_ = [&] {
        service_.setPaused(true);
    };
    const auto summary = scan();
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->scanned, 500);
    EXPECT_EQ(store_.watermark(), 503);
}

TEST_F(CollectorServiceTest, AcceptedMessagesAreSavedAlthoughTheScanIsCancelled) {
    addMessages(600);
    const auto cancelWhenAccepted = [this](std::string_view message) {
        if (message.starts_with("batch accepted")) {
            cancellation_.cancel();
        }
    };
    log_.setOnWrite(cancelWhenAccepted);
    expectStopped(scan());
    EXPECT_EQ(store_.watermark(), 600);
    EXPECT_EQ(store_.backfillCursor(), 101);

    log_.setOnWrite({});
    cancellation_ = {};
    EXPECT_EQ(scan()->scanned, 100);
    addMessages(600);
    log_.setOnWrite(cancelWhenAccepted);
    EXPECT_EQ(scan()->scanned, 500) << "the next batch of new messages is not read";
    EXPECT_EQ(store_.watermark(), 1100);
}

TEST_F(CollectorServiceTest, NewMessagesWaitForAHistoryThatIsNoLongerDone) {
    addMessages(3);
    scan();
    addMessages(600);
    onBatch_ = [&] {
        store_.setBackfillDone(false);
    };
    EXPECT_EQ(scan()->uploaded, 500);
}

TEST_F(CollectorServiceTest, CancellingDuringThePauseEndsTheScan) {
    addMessages(1200);
    onWait_ = [&] {
        cancellation_.cancel();
    };
    const auto summary = scan();
    expectStopped(summary);
    EXPECT_EQ(summary->uploaded, 500);
    EXPECT_EQ(store_.backfillCursor(), 701);
}

TEST_F(CollectorServiceTest, CancellingDuringTheCopyEndsTheScan) {
    addMessages(3);
    cancellation_.cancel();
    expectStopped(scan());
    EXPECT_TRUE(session_.requests().empty());

    database_.execute("PRAGMA journal_mode = WAL");
    addMessages(3);
    cancellation_ = {};
    std::vector<std::string> copied;
    copier_.setOnCopied([&](std::string name) {
        copied.push_back(std::move(name));
        cancellation_.cancel();
    });
    EXPECT_FALSE(scan()->error);
    EXPECT_EQ(copied, std::vector<std::string>{"chat.db"});
}

TEST_F(CollectorServiceTest, CancellingDuringAnUploadEndsItAtOnceAndSavesNoProgress) {
    addMessages(3);
    session_.setHandler([this](const URLRequest&) -> FakeURLSession::Answer {
        QMetaObject::invokeMethod(
            &driver_, [this] { cancellation_.cancel(); }, Qt::QueuedConnection);
        return std::nullopt;
    });
    const auto summary = scan();
    expectStopped(summary);
    EXPECT_EQ(session_.requests().size(), 1U);
    EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
}

TEST_F(CollectorServiceTest, CancellingBetweenAttemptsEndsTheScan) {
    addMessages(3);
    session_.enqueue(503, "");
    onWait_ = [&] {
        cancellation_.cancel();
    };
    const auto summary = scan();
    expectStopped(summary);
    EXPECT_EQ(session_.requests().size(), 1U);
    EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
}

TEST_F(CollectorServiceTest, ANewerMessageDuringTheWalkIsLeftToTheForwardPass) {
    addMessages(600);
    onBatch_ = [&] {
        onBatch_ = {};
        addMessages(5);
    };
    EXPECT_EQ(scan()->uploaded, 600);
    EXPECT_EQ(store_.watermark(), 600);
    EXPECT_EQ(scan()->uploaded, 5);
    EXPECT_EQ(store_.watermark(), 605);
}

TEST_F(CollectorServiceTest, AResumedWalkDoesNotChangeTheWatermark) {
    addMessages(1000);
    store_.setWatermark(1000);
    store_.setBackfillCursor(501);
    onBatch_ = [&] {
        EXPECT_EQ(store_.watermark(), 1000);
    };
    EXPECT_EQ(scan()->uploaded, 500);
    EXPECT_EQ(store_.watermark(), 1000);
}

TEST_F(CollectorServiceTest, ResettingWalksBackFromTheNewestMessageAgain) {
    addMessages(3);
    scan();
    EXPECT_TRUE(service_.hasScanned());
    received_.clear();
    runTask(service_.resetWatermark());
    EXPECT_EQ(store_.watermark(), 0);
    EXPECT_EQ(scan()->uploaded, 3);
    EXPECT_EQ(received_, (std::vector<std::string>{"message-3", "message-2", "message-1"}));
    EXPECT_EQ(store_.messagesLast24h(), 3);
}

TEST_F(CollectorServiceTest, ResettingEndsARunningScanBeforeItSavesProgress) {
    addMessages(1200);
    for (const bool isBackfillDone : {false, true}) {
        store_.setBackfillDone(isBackfillDone);
        onBatch_ = [this] {
            QMetaObject::invokeMethod(
                &driver_, [this] { service_.resetWatermark(); }, Qt::QueuedConnection);
        };
        const auto summary = scan();
        EXPECT_FALSE(summary->error);
        EXPECT_EQ(summary->uploaded, 500);
        EXPECT_EQ(store_.watermark(), 0);
        EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
        EXPECT_FALSE(store_.isBackfillDone());
        EXPECT_EQ(waits_, std::vector<double>()) << "it ends without a pause";
    }
    onBatch_ = nullptr;
    received_.clear();
    EXPECT_EQ(scan()->uploaded, 1200);
    EXPECT_EQ(received_.front(), "message-1200");
}

TEST_F(CollectorServiceTest, AResetJustBeforeProgressIsSavedIsKept) {
    addMessages(3);
    for (const bool isBackfillDone : {false, true}) {
        store_.setBackfillDone(isBackfillDone);
        std::promise<void> saving;
        std::optional<QCoro::Task<>> hold;
        std::optional<QCoro::Task<>> reset;
        log_.setOnWrite([&](std::string_view message) {
            if (!hold && message.starts_with("batch accepted")) {
                // The worker resets the progress when the scan is about to save it.
                hold = worker_.run([isSaving = saving.get_future().share()] { isSaving.wait(); });
                reset = service_.resetWatermark();
                QMetaObject::invokeMethod(
                    &driver_, [&] { saving.set_value(); }, Qt::QueuedConnection);
            }
        });
        EXPECT_EQ(scan()->uploaded, 3);
        EXPECT_EQ(store_.watermark(), 0);
        EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
        EXPECT_FALSE(store_.isBackfillDone());
        runTask(*std::move(hold));
        runTask(*std::move(reset));
    }
}

TEST_F(CollectorServiceTest, AResetDuringTheScanOfAnotherProcessFails) {
    addMessages(3);
    scan();
    auto lock = defaults_.tryLock();
    try {
        runTask(service_.resetWatermark());
        ADD_FAILURE() << "Nothing was thrown.";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Another scan is running.");
    }
    EXPECT_EQ(store_.watermark(), 3);
    lock.reset();
    runTask(service_.resetWatermark());
    EXPECT_EQ(store_.watermark(), 0);
    EXPECT_NE(defaults_.tryLock(), nullptr) << "the reset has released the lock";
}

TEST_F(CollectorServiceTest, AResetDuringAScanKeepsTheLockOfTheScan) {
    addMessages(3);
    bool wasReset = false;
    onBatch_ = [&] {
        runTask(service_.resetWatermark());
        wasReset = true;
        EXPECT_EQ(defaults_.tryLock(), nullptr);
    };
    EXPECT_EQ(scan()->error, std::nullopt);
    EXPECT_TRUE(wasReset);
    EXPECT_NE(defaults_.tryLock(), nullptr);
}

TEST_F(CollectorServiceTest, AFailedResetDoesNotEndARunningScan) {
    addMessages(1200);
    bool hasFailed = false;
    onBatch_ = [&] {
        if (hasFailed) {
            return;
        }
        defaults_.setFailsWrites(true);
        try {
            runTask(service_.resetWatermark());
        } catch (const tavrin::PlatformError&) {
            hasFailed = true;
        }
        defaults_.setFailsWrites(false);
    };
    const auto summary = scan();
    EXPECT_TRUE(hasFailed);
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->uploaded, 1200);
    EXPECT_EQ(store_.watermark(), 1200);
    EXPECT_TRUE(store_.isBackfillDone());
}

TEST_F(CollectorServiceTest, TheLastDaysMessagesAreCountedAtTheStart) {
    EXPECT_FALSE(service_.hasScanned());
    addMessages(4);
    onBatch_ = [this] {
        EXPECT_EQ(store_.messagesLast24h(), 4);
    };
    scan();
    EXPECT_EQ(store_.messagesLast24hAt(), clock_.now());
    EXPECT_TRUE(service_.hasScanned());

    clock_.advance(tavrin::Seconds(100'000));
    scan();
    EXPECT_EQ(store_.messagesLast24h(), 0);
    EXPECT_EQ(store_.messagesLast24hAt(), clock_.now());
}

TEST_F(CollectorServiceTest, TheCountedDayHas24Hours) {
    constexpr std::int64_t hour = 3'600'000'000'000;
    for (const std::int64_t hours : {1, 23, 25, 239}) {
        database_.addMessage({.date = test::MessagesDatabaseBuilder::someDate - hours * hour});
    }
    scan();
    EXPECT_EQ(store_.messagesLast24h(), 2);
}

TEST_F(CollectorServiceTest, AFailedCountDoesNotEndTheScan) {
    addMessages(3);
    scan();
    const auto countedAt = store_.messagesLast24hAt();
    addMessages(1);
    database_.execute("ALTER TABLE message RENAME TO message_rows");
    // The date of the first message cannot be computed.
    database_.execute(
        "CREATE VIEW message AS SELECT ROWID AS ROWID, guid, text, handle_id, is_from_me,"
        " date + CASE ROWID WHEN 1 THEN abs(-9223372036854775807 - 1) ELSE 0 END AS date"
        " FROM message_rows");
    clock_.advance(tavrin::Seconds(60));
    const auto summary = scan();
    EXPECT_EQ(summary->error, std::nullopt);
    EXPECT_EQ(summary->uploaded, 1);
    EXPECT_EQ(store_.messagesLast24hAt(), countedAt);
}

TEST_F(CollectorServiceTest, AClockBeyondTheMessagesTimeScaleSkipsTheCount) {
    addMessages(4);
    // 2300-01-01. The scale ends in 2293, and the system's clock in 2262, where it jumps to 1677.
    for (const double now : {10'413'792'000.0, -9'223'372'036.0}) {
        clock_.advance(tavrin::Date(tavrin::Seconds(now)) - clock_.now());
        const auto summary = scan();
        EXPECT_EQ(summary.value().error, std::nullopt);
        EXPECT_EQ(summary->watermark, 4);
        EXPECT_FALSE(service_.hasScanned());
    }
    EXPECT_EQ(received_.size(), 4U);
}

TEST_F(CollectorServiceTest, ALogThatCannotBeCopiedIsLoggedAsAnError) {
    database_.execute("PRAGMA journal_mode = WAL");
    addMessages(3);
    database_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    addMessages(2);
    const auto path = directory_ / "chat.db";
    std::filesystem::last_write_time(
        path, std::filesystem::last_write_time(path) - std::chrono::hours(1));
    copier_.setFailsForLogs(true);
    EXPECT_EQ(scan()->uploaded, 3);
    const std::string postponement = "the newest messages come with a later scan, because they "
                                     "could not be copied: Could not copy: No space left on device";
    EXPECT_EQ(logLines(LogLevel::Error), std::vector{postponement});
    EXPECT_EQ(service_.postponement(), postponement);

    copier_.setFailsForLogs(false);
    EXPECT_EQ(scan()->uploaded, 2);
    EXPECT_EQ(logLines(LogLevel::Error).size(), 1U);
    EXPECT_EQ(service_.postponement(), std::nullopt);

    copier_.setFailsForLogs(true);
    EXPECT_EQ(scan()->scanned, 0);
    EXPECT_EQ(store_.watermark(), 5) << "a copy without the newest rows is no rebuilt database";
}

TEST_F(CollectorServiceTest, RowsOutOfOrderAreLoggedOnceAScan) {
    addMessages(9);
    database_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    test::changeRowID(database_.path(), 5, 100);
    // Both the walk through the history and the one to new messages find the row.
    const auto summary = scan();
    EXPECT_EQ(summary.value().error, std::nullopt);
    EXPECT_EQ(summary->uploaded, 8);
    EXPECT_GE(summary->skippedNotUserContent, 2);
    EXPECT_EQ(summary->watermark, 9);
    EXPECT_EQ(
        logLines(LogLevel::Error),
        std::vector<std::string>{
            "the Messages database is damaged: skipping rows whose ids are out of order"});
}

TEST_F(CollectorServiceTest, ADamagedIdOfTheLastRowIsNoReasonToStartAgain) {
    addMessages(9);
    database_.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    test::changeRowID(database_.path(), 9, 100);
    EXPECT_EQ(scan()->uploaded, 8);
    EXPECT_EQ(store_.watermark(), 8);
    EXPECT_EQ(logLines(LogLevel::Error).size(), 1U);
    const auto summary = scan();
    EXPECT_EQ(summary.value().scanned, 0);
    EXPECT_EQ(summary->skippedNotUserContent, 1);
    EXPECT_EQ(logLines(LogLevel::Error).size(), 2U);
    EXPECT_TRUE(logLines(LogLevel::Default).empty());
}

TEST_F(CollectorServiceTest, TooManyRowsOutOfOrderAreAnErrorAndTheHistoryIsNotDone) {
    addMessages(1);
    // Rows beyond every used id, which no index confirms.
    database_.execute(
        "WITH RECURSIVE id(n) AS (SELECT 1000 UNION ALL SELECT n + 1 FROM id WHERE n < 150000) "
        "INSERT INTO message (ROWID, guid) SELECT n, n FROM id");
    database_.execute("UPDATE sqlite_sequence SET seq = 1 WHERE name = 'message'");
    const auto summary = scan();
    EXPECT_EQ(
        summary.value().error,
        "The Messages database is damaged: the ids of 128000 successive rows are out of order. The "
        "messages behind them cannot be read.");
    EXPECT_FALSE(store_.isBackfillDone());
    EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
}

TEST_F(CollectorServiceTest, AMissingDatabaseEndsTheScanWithItsDescription) {
    std::filesystem::remove(directory_ / "chat.db");
    const auto summary = scan();
    EXPECT_EQ(
        summary->error, "Messages database not found at " + (directory_ / "chat.db").string());
    EXPECT_FALSE(service_.hasScanned());
    EXPECT_FALSE(service_.isScanning());
}

TEST_F(CollectorServiceTest, AnUnexpectedSchemaPausesCollection) {
    addMessages(1);
    database_.execute("ALTER TABLE message RENAME COLUMN guid TO identifier");
    const auto summary = scan();
    EXPECT_EQ(
        summary->error,
        "chat.db schema unexpected: column `message.guid` not found. Messages may have changed its "
        "schema — collection is paused rather than silently returning nothing.");
    EXPECT_TRUE(session_.requests().empty());
}

TEST_F(CollectorServiceTest, ProgressThatCannotBeSavedEndsTheScan) {
    addMessages(3);
    onBatch_ = [&] {
        defaults_.setFailsWrites(true);
    };
    const auto summary = scan();
    ASSERT_TRUE(summary->error);
    EXPECT_NE(summary->error->find("Could not write the settings"), std::string::npos);
    EXPECT_EQ(store_.backfillCursor(), cursorAtStart);
}

TEST_F(CollectorServiceTest, TheCopyIsRemovedAfterTheScan) {
    addMessages(3);
    bool existed = false;
    onBatch_ = [&] {
        existed = !std::filesystem::is_empty(temporary_.path());
    };
    scan();
    EXPECT_TRUE(existed);
    EXPECT_TRUE(std::filesystem::is_empty(temporary_.path()));

    session_.setHandler([](const URLRequest&) {
        return FakeURLSession::Answer(URLResponse{400, ""});
    });
    addMessages(1);
    EXPECT_TRUE(scan()->error);
    EXPECT_TRUE(std::filesystem::is_empty(temporary_.path()));
}

TEST_F(CollectorServiceTest, TheCopyIsListedWhileItExists) {
    addMessages(3);
    bool isRemoved = false;
    onBatch_ = [&] {
        live_->removeDirectories();
        isRemoved = std::filesystem::is_empty(temporary_.path());
    };
    scan();
    EXPECT_TRUE(isRemoved);
}

TEST_F(CollectorServiceTest, ItRemovesTheCopiesOfKilledProcesses) {
    std::filesystem::create_directory(
        temporary_ / "tavrin-chatdb-00000000-0000-0000-0000-000000000000");
    scan();
    EXPECT_TRUE(std::filesystem::is_empty(temporary_.path()));
}

TEST_F(CollectorServiceTest, ItRemovesTheCopiesOfKilledProcessesInTheTemporaryFolderOfBefore) {
    scan();
    const auto left = temporary_ / "tavrin-chatdb-00000000-0000-0000-0000-000000000000";
    std::filesystem::create_directory(left);
    const test::TemporaryDirectory other;
    const auto folder = other / "another % folder";
    std::filesystem::create_directory(folder);
    qputenv("TMPDIR", folder.c_str());
    scan();
    EXPECT_FALSE(std::filesystem::exists(left));

    std::filesystem::create_directory(
        folder / "tavrin-chatdb-00000000-0000-0000-0000-000000000000");
    qputenv("TMPDIR", temporary_.path().c_str());
    scan();
    EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(CollectorServiceTest, ItLogsTheBeginningEachBatchAndTheEnd) {
    addMessages(2);
    addMessages(1, false);
    session_.enqueue(
        200,
        R"({"ok":true,"data":{"acceptedWatermark":2,"accepted":2,"contactsTouched":1,)"
        R"("unknownCounterparty":7}})");
    scan(ThreadScope::KnownContactsOnly);
    const std::vector<std::string> expected = {
        "scan starting (mode=withBodies, scope=knownContactsOnly, known contacts=1)",
        "batch accepted: 2 messages, 1 contacts touched, 7 with unknown counterparties",
        "scan done: examined 3, sent 2, skipped 1 out of scope, backfill complete, watermark 3"};
    EXPECT_EQ(logLines(LogLevel::Info), expected);
}

TEST_F(CollectorServiceTest, NoLogLineContainsTextOrAHandle) {
    addMessages(3);
    session_.enqueue(503, "");
    scan();
    for (const auto& entry : log_.lines()) {
        EXPECT_EQ(entry.message.find("text 1"), std::string::npos);
        EXPECT_EQ(entry.message.find("4155550134"), std::string::npos);
    }
}

TEST_F(CollectorServiceTest, TheHistoryKeepsFiftyFinishedScans) {
    addMessages(1);
    for (int i = 0; i < 51; ++i) {
        clock_.advance(tavrin::Seconds(60));
        scan();
    }
    EXPECT_EQ(service_.history().size(), 50U);
    EXPECT_GT(service_.history().front().startedAt, service_.history().back().startedAt);
    EXPECT_EQ(service_.history().back().uploaded, 0)
        << "the first scan's summary is the one dropped";
}

TEST_F(CollectorServiceTest, SkippedScansGrowTheHistoryUntilTheNextFinishedOne) {
    for (int i = 0; i < 60; ++i) {
        service_.recordAbort("skipped");
    }
    EXPECT_EQ(service_.history().size(), 60U);
    scan();
    EXPECT_EQ(service_.history().size(), 50U);
}

TEST_F(CollectorServiceTest, AFinishedScanFreesTheMemoryOfSkippedOnes) {
    for (int i = 0; i < 1000; ++i) {
        service_.recordAbort("skipped");
    }
    scan();
    EXPECT_LT(service_.history().capacity(), 2 * CollectorService::maximumHistory);
}

TEST_F(CollectorServiceTest, ASkippedScanIsRecordedWithItsReason) {
    store_.setWatermark(9);
    service_.recordAbort("no list");
    ASSERT_EQ(service_.history().size(), 1U);
    const ScanSummary& summary = service_.history().front();
    EXPECT_EQ(summary.error, "no list");
    EXPECT_EQ(summary.startedAt, clock_.now());
    EXPECT_EQ(summary.finishedAt, clock_.now());
    EXPECT_EQ(summary.watermark, 9);
    EXPECT_EQ(summary.mode, CollectionMode::MetadataOnly);
    EXPECT_EQ(summary.scanned, 0);
    EXPECT_FALSE(summary.id.isNull());
    EXPECT_EQ(service_.lastError(), "no list");
    EXPECT_EQ(logLines(LogLevel::Error), std::vector<std::string>{"scan skipped: no list"});
}

TEST_F(CollectorServiceTest, NoticesAreLoggedAsErrors) {
    service_.noteContactsUnavailable();
    service_.noteDebuggerBlocksPrompt();
    service_.noteContactsRequestIgnored();
    service_.noteContactsAddedNothing(12);
    const std::vector<std::string> expected = {
        "Contacts access not granted: only identifiers the graph already holds can match, which on "
        "an email-derived graph is very few phone numbers",
        "not requesting Contacts: a debugger is attached, so macOS will not show the prompt and "
        "would record a permanent denial. Quit the Xcode run and open the app from Finder.",
        "Contacts request did not grant access and macOS showed no prompt. A decision recorded for "
        "an earlier build of this app cannot be repaired by toggling the switch — remove Orvel "
        "Agent from System Settings > Privacy & Security > Contacts, then ask again.",
        "address book gave no new identifiers (12 contacts): either none of them share an email "
        "with the graph, or the threads genuinely do not overlap it"};
    EXPECT_EQ(logLines(LogLevel::Error), expected);
}

TEST_F(CollectorServiceTest, ItReportsItsProgress) {
    addMessages(1000);
    std::vector<double> fractions;
    QObject::connect(&service_, &CollectorService::progressed, &service_, [&] {
        fractions.push_back(service_.progress().backfillFraction.value_or(-1));
    });
    scan();
    ASSERT_EQ(fractions.size(), 3U);
    EXPECT_NEAR(fractions[0], 0.5, 0.01);
    EXPECT_NEAR(fractions[1], 1.0, 0.01);
    EXPECT_EQ(fractions[2], -1) << "the forward pass cannot know";
    EXPECT_EQ(service_.progress().scanned, 1000);
    EXPECT_EQ(service_.progress().uploaded, 1000);
}

TEST_F(CollectorServiceTest, AWalkThroughNoHistoryHasNoFraction) {
    std::vector<bool> hasFraction;
    QObject::connect(&service_, &CollectorService::progressed, &service_, [&] {
        hasFraction.push_back(service_.progress().backfillFraction.has_value());
    });
    scan();
    EXPECT_EQ(hasFraction, (std::vector<bool>{false, false}));
}

TEST_F(CollectorServiceTest, ItAnnouncesTheStartAndTheEndOfAScan) {
    addMessages(3);
    session_.enqueue(400, R"({"ok":false,"error":"bad"})");
    scan();
    EXPECT_EQ(service_.lastError(), "bad");
    std::vector<bool> states;
    QObject::connect(&service_, &CollectorService::changed, &service_, [&] {
        states.push_back(service_.isScanning());
        EXPECT_EQ(service_.lastError(), std::nullopt) << "that was the scan before";
        if (service_.isScanning()) {
            EXPECT_EQ(service_.progress().scanned, 0);
        }
    });
    const auto first = scan();
    EXPECT_EQ(states, (std::vector<bool>{true, false}));
    const auto second = scan();
    EXPECT_EQ(states, (std::vector<bool>{true, false, true, false}));
    EXPECT_FALSE(first->id.isNull());
    EXPECT_NE(first->id, second->id);
}

TEST_F(CollectorServiceTest, ItAnnouncesAPauseOnceAndASkippedScan) {
    int changes = 0;
    QObject::connect(&service_, &CollectorService::changed, &service_, [&] { ++changes; });
    service_.setPaused(true);
    EXPECT_EQ(changes, 1);
    service_.setPaused(true);
    EXPECT_EQ(changes, 1);
    service_.recordAbort("skipped");
    EXPECT_EQ(changes, 2);
}

TEST_F(CollectorServiceTest, TheProgressBelongsToAccountServiceAndDatabase) {
    const std::string path = (directory_ / "chat.db").string();
    scan();
    EXPECT_EQ(
        storedValue<std::string>(defaults_, "messages.progress.owner"),
        R"({"account":"uid-1","service":"https://api.test.example","database":")" + path + R"("})");
}

TEST_F(CollectorServiceTest, APathInAnotherNotationIsTheSameDatabase) {
    addMessages(3);
    scan();
    CollectorService other(
        store_,
        ingest_,
        copier_,
        clock_,
        worker_,
        log_,
        {.sourcePath = std::filesystem::relative(directory_ / "chat.db").string()});
    EXPECT_EQ(runTask(other.runScan(planOf(ThreadScope::AllThreads)))->scanned, 0);
    EXPECT_EQ(logLines(LogLevel::Default), std::vector<std::string>());
}

TEST_F(CollectorServiceTest, TheProgressOfAnotherAccountIsNotUsed) {
    addMessages(3);
    scan();
    account_ = "uid-2";
    EXPECT_EQ(scan()->uploaded, 3);
    EXPECT_EQ(scan()->uploaded, 0);
    const auto lines = logLines(LogLevel::Default);
    EXPECT_EQ(
        std::ranges::count(lines, "starting from the beginning: the account is another one"), 1);
}

TEST_F(CollectorServiceTest, ARebuiltDatabaseIsReadFromItsBeginning) {
    addMessages(3);
    store_.setWatermark(1000);
    store_.setBackfillDone(true);
    EXPECT_EQ(scan()->uploaded, 3);
}

TEST_F(CollectorServiceTest, DeletingTheNewestMessagesIsNoReasonToStartAgain) {
    addMessages(3);
    scan();
    database_.execute("DELETE FROM message WHERE ROWID > 1");
    EXPECT_EQ(scan()->scanned, 0);
    EXPECT_EQ(store_.watermark(), 3);
}

TEST_F(CollectorServiceTest, AScanOfAllThreadsNeedsNoReturnToMessagesWithoutTheAddressBook) {
    addMessages(3, false);
    addressBook_ = ScanPlan::AddressBook::Unreadable;
    scan(ThreadScope::AllThreads);
    addressBook_ = ScanPlan::AddressBook::Read;
    EXPECT_EQ(scan(ThreadScope::AllThreads)->scanned, 0);
}

TEST_F(CollectorServiceTest, AnAddressBookThatIsNotUsedEndsNoContactsGap) {
    addMessages(3, false);
    addressBook_ = ScanPlan::AddressBook::Unreadable;
    EXPECT_EQ(scan(ThreadScope::KnownContactsOnly)->skippedOutOfScope, 3);
    addressBook_ = ScanPlan::AddressBook::Unused;
    EXPECT_EQ(scan(ThreadScope::KnownContactsOnly)->scanned, 0);
    addressBook_ = ScanPlan::AddressBook::Read;
    EXPECT_EQ(scan(ThreadScope::KnownContactsOnly)->scanned, 3);
    EXPECT_EQ(
        logLines(LogLevel::Default),
        std::vector<std::string>{"the address book can be read again: returning to the messages of "
                                 "the scans without it"});
}

TEST_F(CollectorServiceTest, ASecondScanOnTheSameProgressEndsAtOnce) {
    addMessages(3);
    auto lock = defaults_.tryLock();
    EXPECT_EQ(scan()->error, "Another scan is running.");
    EXPECT_TRUE(session_.requests().empty());
    lock.reset();
    EXPECT_EQ(scan()->uploaded, 3);
    EXPECT_EQ(scan()->error, std::nullopt) << "the first scan has released the lock";
}

TEST_F(CollectorServiceTest, AReplyThatRepeatsTheBatchIsNeitherLoggedNorShown) {
    addMessages(1);
    database_.addMessage(
        {.rowID = ++messages_,
         .guid = "confidential",
         .text = "Meet me at the old harbour",
         .chats = {knownChat_}});
    session_.setHandler([](const URLRequest& request) {
        return URLResponse{503, "<html><pre>" + request.body.value() + "</pre></html>"};
    });
    const auto summary = scan();
    EXPECT_EQ(summary->error, "HTTP 503");
    EXPECT_EQ(service_.lastError(), "HTTP 503");
    EXPECT_EQ(log_.lines().empty(), false);
    for (const auto& line : log_.lines()) {
        for (const char* value : {"harbour", "4155550134", "text 1", "confidential"}) {
            EXPECT_EQ(line.message.find(value), std::string::npos) << line.message;
        }
    }
}

TEST_F(CollectorServiceTest, FewerAcceptedMessagesThanSentAreLoggedAsAnError) {
    addMessages(3);
    session_.enqueue(200, R"({"ok":true,"data":{"acceptedWatermark":3,"accepted":2}})");
    const auto summary = scan();
    EXPECT_FALSE(summary->error);
    EXPECT_EQ(summary->uploaded, 3);
    EXPECT_EQ(
        logLines(LogLevel::Error),
        std::vector<std::string>{"the service accepted only 2 of 3 messages of a batch"});
}

} // namespace orvel
