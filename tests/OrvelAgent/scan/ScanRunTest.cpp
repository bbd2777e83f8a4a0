// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/ScanRun.h"

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Worker.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/TestPlatform.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

using tavrin::CollectionMode;
using tavrin::ThreadScope;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using AddressBookUse = ScanRun::AddressBookUse;
using Summary = CollectorService::ScanSummary;

QCoro::Task<std::optional<tavrin::Secret>> oneToken(tavrin::CancellationToken ended) {
    ended.throwIfCancelled();
    const std::optional<tavrin::Secret> token = tavrin::Secret("token");
    co_return token;
}

QCoro::Task<> endSession(tavrin::CancellationSource end) {
    end.cancel();
    co_return;
}

QCoro::Task<std::optional<AccountSession>>
session(tavrin::CancellationSource end, bool isSignedIn) {
    if (!isSignedIn) {
        co_return std::nullopt;
    }
    AccountSession session;
    session.account = "uid-1";
    session.ended = end.token();
    session.tokenProvider = [ended = end.token()] {
        return oneToken(ended);
    };
    session.onSessionExpired = [end] {
        return endSession(end);
    };
    co_return session;
}

class ScanRunTest : public testing::Test {
protected:
    ScanRunTest() {
        qputenv("TMPDIR", temporary_.path().c_str());
        const auto chat =
            database_.addChat({.participants = {database_.addHandle("+14155550134")}});
        database_.addMessage({.guid = "message-1", .text = "text", .chats = {chat}});
    }

    ~ScanRunTest() override {
        worker_.stop();
        qunsetenv("TMPDIR");
    }

    CollectorService::Options options() {
        CollectorService::Options options;
        options.sourcePath = (directory_ / "chat.db").string();
        return options;
    }

    std::optional<Summary> run(AddressBookUse addressBookUse) {
        return runTask(scanRun_.run(addressBookUse, std::nullopt, cancellation_.token()));
    }

    [[nodiscard]] std::vector<std::string> errors() const {
        std::vector<std::string> messages;
        for (const auto& line : with_.logStore.lines()) {
            if (line.level == LogLevel::Error) {
                messages.push_back(line.message);
            }
        }
        return messages;
    }

    TemporaryDirectory directory_;
    TemporaryDirectory temporary_;
    MessagesDatabaseBuilder database_{directory_ / "chat.db"};
    TestPlatform with_;
    Configuration configuration_{with_.bundle};
    Worker worker_;
    IngestClient ingest_{
        APIClient(
            with_.urlSession,
            worker_,
            configuration_,
            configuration_.apiBaseURL(),
            {},
            IngestClient::requestTimeout),
        "1.2.3"};
    ContactBridge contacts_{with_.addressBook, worker_, with_.logStore};
    WatermarkStore watermarkStore_{with_.userDefaults};
    CollectorService collector_{
        watermarkStore_,
        ingest_,
        with_.fileCopier,
        with_.clock,
        worker_,
        with_.logStore,
        options()};
    ScanRun::Choices choices_;
    tavrin::CancellationSource cancellation_;
    tavrin::CancellationSource sessionEnd_;
    bool isSignedIn_ = true;
    ScanRun scanRun_{
        {ingest_,
         contacts_,
         collector_,
         with_.clock,
         [this](tavrin::CancellationToken) {
             return session(sessionEnd_, isSignedIn_);
         }},
        choices_,
        Logger(with_.logStore, "test")};
};

} // namespace

TEST_F(ScanRunTest, ItSendsTheMessagesOfKnownHandlesAndReturnsTheSummary) {
    const auto summary = run(AddressBookUse::Read);
    ASSERT_TRUE(summary);
    EXPECT_EQ(summary->error, std::nullopt);
    EXPECT_EQ(summary->uploaded, 1);
    EXPECT_THAT(with_.service.guids(), ElementsAre("message-1"));
    EXPECT_FALSE(scanRun_.isConsultingAddressBook());
}

TEST_F(ScanRunTest, TheSummaryAndTheDailyCountHaveTheTimeOfThePlan) {
    const tavrin::Date start = with_.clock.now();
    with_.addressBook.status = AddressBook::AuthorizationStatus::Denied;
    // Time passes with each log line: one before the scan for the address book, one when it starts.
    with_.logStore.setOnWrite(
        [this](std::string_view) { with_.clock.advance(tavrin::Seconds(1)); });
    const auto summary = run(AddressBookUse::Read);
    EXPECT_EQ(summary.value().startedAt, start);
    EXPECT_EQ(watermarkStore_.messagesLast24hAt(), start);
    EXPECT_GT(summary->finishedAt, start + tavrin::Seconds(1));
    with_.logStore.setOnWrite(nullptr);
}

TEST_F(ScanRunTest, RecordsCarryTheNamesOfTheAddressBook) {
    ContactCard card;
    card.givenName = "Jane";
    card.phoneNumbers = {"+1 415 555 0134"};
    with_.addressBook.cards = {card};
    run(AddressBookUse::Read);
    EXPECT_THAT(
        with_.urlSession.requests().back().body.value(),
        HasSubstr(R"("participantNames":{"+14155550134":"Jane"})"));
}

TEST_F(ScanRunTest, OnlyMessagesSinceTheGivenTimeAreSent) {
    const tavrin::Date later = with_.clock.now() + tavrin::Seconds(1);
    const auto summary = runTask(scanRun_.run(AddressBookUse::Read, later, cancellation_.token()));
    EXPECT_EQ(summary.value().scanned, 0);
}

TEST_F(ScanRunTest, WithoutASessionNothingIsScannedAndNoDiagnosticsAreSent) {
    EXPECT_TRUE(run(AddressBookUse::Read));
    const auto requests = with_.urlSession.requests().size();
    isSignedIn_ = false;
    EXPECT_EQ(run(AddressBookUse::Read), std::nullopt);
    EXPECT_TRUE(scanRun_.hasSessionEnded());
    runTask(scanRun_.sendDiagnostics({"line"}, {}));
    EXPECT_EQ(with_.urlSession.requests().size(), requests);
    EXPECT_EQ(collector_.history().size(), 1U);
}

TEST_F(ScanRunTest, TheListsReplyThatEndsTheSessionIsTheErrorOfAScanOfThem) {
    with_.service.setAnswer(
        FakeService::digestPath,
        401,
        R"({"ok":false,"error":"Your session has ended.","code":"session_expired"})");
    EXPECT_THROW(run(AddressBookUse::Read), std::runtime_error);
    EXPECT_TRUE(scanRun_.hasSessionEnded());
}

TEST_F(ScanRunTest, TheListsReplyThatEndsTheSessionEndsAScanOfAllThreads) {
    choices_.scope = ThreadScope::AllThreads;
    with_.service.setAnswer(
        FakeService::digestPath,
        401,
        R"({"ok":false,"error":"Your session has ended.","code":"session_expired"})");
    EXPECT_EQ(run(AddressBookUse::Read), std::nullopt);
    EXPECT_TRUE(scanRun_.hasSessionEnded());
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_FALSE(scanRun_.isConsultingAddressBook());
}

TEST_F(ScanRunTest, AnUploadsReplyThatEndsTheSessionIsTheErrorOfTheScan) {
    with_.service.setAnswer(
        FakeService::ingestPath,
        401,
        R"({"ok":false,"error":"Your session has ended.","code":"session_expired"})");
    EXPECT_EQ(run(AddressBookUse::Read).value().error, "Your session has ended.");
    EXPECT_TRUE(scanRun_.hasSessionEnded());
}

TEST_F(ScanRunTest, AnAddressBookThatCannotBeReadLeavesAGap) {
    constexpr std::string_view gap = "messages.progress.beforeContactsGap";
    with_.addressBook.bookError = tavrin::PlatformError("test", 5, "The disk is gone.");
    run(AddressBookUse::Read);
    EXPECT_TRUE(with_.userDefaults.contains(gap));

    // Without hints, it is not read, so this does not show that it can be read again.
    with_.addressBook.bookError.reset();
    with_.service.hints.clear();
    run(AddressBookUse::Read);
    EXPECT_TRUE(with_.userDefaults.contains(gap));

    with_.service.hints = {"4155550134"};
    run(AddressBookUse::Read);
    EXPECT_FALSE(with_.userDefaults.contains(gap));

    with_.addressBook.status = AddressBook::AuthorizationStatus::Restricted;
    run(AddressBookUse::Read);
    EXPECT_TRUE(with_.userDefaults.contains(gap));
}

TEST_F(ScanRunTest, WithoutTheListOfKnownHandlesAScanOfThemThrowsAndReadsNothing) {
    with_.service.setAnswer(FakeService::digestPath, 503, "Busy.");
    try {
        run(AddressBookUse::Read);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(
            error.what(),
            "Could not fetch the known-contact list, so this scan was skipped rather than "
            "reporting a false empty result: Busy.");
    }
    EXPECT_THAT(with_.addressBook.enumerations, IsEmpty());
    EXPECT_THAT(collector_.history(), IsEmpty());
}

TEST_F(ScanRunTest, WithoutTheListOfKnownHandlesAScanOfAllThreadsContinues) {
    choices_.scope = ThreadScope::AllThreads;
    with_.service.setAnswer(FakeService::digestPath, 503, "Busy.");
    EXPECT_TRUE(run(AddressBookUse::None));
    EXPECT_THAT(errors(), ElementsAre("going on without the known-contact list: Busy."));
    EXPECT_THAT(with_.service.guids(), ElementsAre("message-1"));
}

TEST_F(ScanRunTest, ANarrowerModeDuringThePreparationEndsTheRun) {
    auto running = scanRun_.run(AddressBookUse::Read, std::nullopt, cancellation_.token());
    choices_.mode = CollectionMode::MetadataOnly;
    scanRun_.applyChoices();
    EXPECT_EQ(runTask(std::move(running)), std::nullopt);
    EXPECT_TRUE(scanRun_.wasSuperseded());
    EXPECT_THAT(with_.service.guids(), IsEmpty());
    EXPECT_EQ(run(AddressBookUse::Read).value().mode, CollectionMode::MetadataOnly);
    EXPECT_FALSE(scanRun_.wasSuperseded());
}

TEST_F(ScanRunTest, AResetDuringThePreparationIsLeftToTheNextRun) {
    auto running = scanRun_.run(AddressBookUse::Read, std::nullopt, cancellation_.token());
    choices_.scope = ThreadScope::AllThreads;
    runTask(collector_.resetWatermark());
    EXPECT_EQ(runTask(std::move(running)).value().scanned, 0);
    EXPECT_GT(run(AddressBookUse::Read).value().scanned, 0);
}

TEST_F(ScanRunTest, AWiderChoiceAppliesToTheNextRun) {
    choices_ = {CollectionMode::MetadataOnly, ThreadScope::KnownContactsOnly};
    auto running = scanRun_.run(AddressBookUse::Read, std::nullopt, cancellation_.token());
    choices_ = {CollectionMode::WithBodies, ThreadScope::AllThreads};
    scanRun_.applyChoices();
    EXPECT_EQ(runTask(std::move(running)).value().mode, CollectionMode::MetadataOnly);
    EXPECT_FALSE(scanRun_.wasSuperseded());
}

TEST_F(ScanRunTest, AScopeNarrowedAfterAFailedDigestLosesNoMessage) {
    choices_.scope = ThreadScope::AllThreads;
    with_.service.setAnswer(FakeService::digestPath, 503, "Busy.");
    with_.addressBook.hold();
    auto running = scanRun_.run(AddressBookUse::Read, std::nullopt, cancellation_.token());
    ASSERT_TRUE(waitUntil([this] { return !with_.addressBook.enumerations.empty(); }));
    choices_.scope = ThreadScope::KnownContactsOnly;
    scanRun_.applyChoices();
    EXPECT_EQ(runTask(std::move(running)), std::nullopt);
    EXPECT_EQ(watermarkStore_.watermark(), 0);
    with_.service.resetAnswer(FakeService::digestPath);
    EXPECT_EQ(run(AddressBookUse::None).value().uploaded, 1);
}

TEST_F(ScanRunTest, TheEndOfTheSessionEndsTheRunAndItsDiagnosticsAreNotSent) {
    with_.service.setAnswer(FakeService::ingestPath, std::nullopt);
    auto running = scanRun_.run(AddressBookUse::Read, std::nullopt, cancellation_.token());
    ASSERT_TRUE(
        waitUntil([this] { return with_.service.requestCount(FakeService::ingestPath) == 1; }));
    sessionEnd_.cancel();
    const auto summary = runTask(std::move(running));
    ASSERT_TRUE(summary);
    EXPECT_EQ(summary->error, std::nullopt);
    EXPECT_EQ(summary->uploaded, 0);
    EXPECT_FALSE(scanRun_.wasSuperseded());
    EXPECT_TRUE(scanRun_.hasSessionEnded());
    runTask(scanRun_.sendDiagnostics({"line"}, {}));
    EXPECT_EQ(with_.service.requestCount(FakeService::diagnosticsPath), 0U);

    sessionEnd_ = {};
    with_.service.resetAnswer(FakeService::ingestPath);
    EXPECT_EQ(run(AddressBookUse::Read).value().uploaded, 1);
    EXPECT_FALSE(scanRun_.hasSessionEnded());
}

TEST_F(ScanRunTest, TheCallerOrTheEndOfTheSessionEndsTheDiagnosticsAtOnce) {
    run(AddressBookUse::Read);
    with_.service.setAnswer(FakeService::diagnosticsPath, std::nullopt);
    std::size_t count = 0;
    for (tavrin::CancellationSource end : {cancellation_, sessionEnd_}) {
        auto sending = scanRun_.sendDiagnostics({"line"}, cancellation_.token());
        ++count;
        ASSERT_TRUE(waitUntil(
            [&] { return with_.service.requestCount(FakeService::diagnosticsPath) == count; }));
        end.cancel();
        cancellation_ = {};
        EXPECT_NO_THROW(runTask(std::move(sending), std::chrono::seconds(5)));
    }
}

TEST_F(ScanRunTest, ChoicesAfterARunSupersedeNothing) {
    run(AddressBookUse::Read);
    choices_.mode = CollectionMode::MetadataOnly;
    scanRun_.applyChoices();
    EXPECT_FALSE(scanRun_.wasSuperseded());
}

TEST_F(ScanRunTest, EveryRequestCarriesAToken) {
    run(AddressBookUse::Read);
    runTask(scanRun_.sendDiagnostics({"line"}, {}));
    EXPECT_EQ(with_.urlSession.requests().size(), 3U);
    for (const URLRequest& request : with_.urlSession.requests()) {
        EXPECT_THAT(
            request.headers, testing::Contains(testing::Pair("Authorization", "Bearer token")));
    }
}

TEST_F(ScanRunTest, AnUnusedAddressBookIsNeitherReadNorMentioned) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::Denied;
    EXPECT_TRUE(run(AddressBookUse::None));
    EXPECT_THAT(with_.addressBook.enumerations, IsEmpty());
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(ScanRunTest, OnlyCardsThatAddNothingAreNoted) {
    run(AddressBookUse::Read);
    EXPECT_THAT(errors(), IsEmpty()) << "there are no cards";
    with_.addressBook.cards.emplace_back();
    run(AddressBookUse::Read);
    EXPECT_THAT(
        errors(), ElementsAre(HasSubstr("address book gave no new identifiers (1 contacts)")));
}

TEST_F(ScanRunTest, ItAsksForAccessOnlyWithAskAndRead) {
    with_.addressBook.status = AddressBook::AuthorizationStatus::NotDetermined;
    run(AddressBookUse::Read);
    EXPECT_EQ(with_.addressBook.questions, 0);
    EXPECT_THAT(errors(), ElementsAre(HasSubstr("Contacts access not granted")));
    run(AddressBookUse::AskAndRead);
    EXPECT_EQ(with_.addressBook.questions, 1);
    EXPECT_FALSE(with_.addressBook.enumerations.empty());
    run(AddressBookUse::AskAndRead);
    EXPECT_EQ(with_.addressBook.questions, 1);
}

TEST_F(ScanRunTest, CancellingAtTheAddressBookEndsItAtOnceAndIsReported) {
    with_.addressBook.hold();
    auto running = scanRun_.run(AddressBookUse::Read, std::nullopt, cancellation_.token());
    ASSERT_TRUE(waitUntil([this] { return !with_.addressBook.enumerations.empty(); }));
    EXPECT_FALSE(running.isReady());
    cancellation_.cancel();
    EXPECT_TRUE(running.isReady());
    EXPECT_THROW(runTask(std::move(running)), tavrin::TaskCancelled);
    EXPECT_TRUE(scanRun_.isConsultingAddressBook());
}

TEST_F(ScanRunTest, CancelledBeforeTheAddressBookItDoesNotConsultIt) {
    with_.service.setAnswer(FakeService::digestPath, std::nullopt);
    auto running = scanRun_.run(AddressBookUse::Read, std::nullopt, cancellation_.token());
    ASSERT_TRUE(
        waitUntil([this] { return with_.service.requestCount(FakeService::digestPath) == 1; }));
    cancellation_.cancel();
    EXPECT_THROW(runTask(std::move(running)), tavrin::TaskCancelled);
    EXPECT_FALSE(scanRun_.isConsultingAddressBook());
}

} // namespace orvel::test
