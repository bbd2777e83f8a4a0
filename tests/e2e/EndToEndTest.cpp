// SPDX-License-Identifier: Apache-2.0
#include "core/messages/MessagesCollector.h"
#include "core/messages/SQLiteDatabase.h"
#include "tests/e2e/ScanHome.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <boost/json/array.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace orvel {

namespace {

using service::Fault;
using test::Program;
using test::ScanHome;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using namespace std::chrono_literals;

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The records of all uploads in the captured traffic, in order.
std::vector<std::string> recordsIn(const std::string& traffic) {
    std::vector<std::string> records;
    for (const std::string& line : linesOf(traffic)) {
        if (line.starts_with(R"({"source":"imessage")")) {
            const boost::json::value payload =
                boost::json::parse(line.substr(0, line.rfind('}') + 1));
            for (const boost::json::value& record : payload.at("records").as_array()) {
                records.push_back(boost::json::serialize(record));
            }
        }
    }
    return records;
}

/// The text as escaped inside a JSON string.
std::string escaped(const std::string& text) {
    const std::string quoted = boost::json::serialize(boost::json::value(text));
    return quoted.substr(1, quoted.size() - 2);
}

class EndToEndTest : public testing::Test {
protected:
    ScanHome home_;
};

} // namespace

TEST_F(EndToEndTest, AScanSendsEveryMessageAndTheNextOnlyNewOnes) {
    home_.makeSample({"--messages", "1300", "--no-two-chat"});
    const auto first = home_.scan();
    ASSERT_EQ(first.status, 0) << first.errors << first.output;
    const auto expected = home_.sendableGuids();
    EXPECT_EQ(first.count("uploaded"), static_cast<std::int64_t>(expected.size()));
    EXPECT_EQ(home_.service().storedCount(), expected.size());
    EXPECT_EQ(home_.storedGuids(), std::set<std::string>(expected.begin(), expected.end()));

    const auto nothingNew = home_.scan();
    EXPECT_EQ(nothingNew.status, 0);
    EXPECT_EQ(nothingNew.count("scanned"), 0);

    Program append({{MAKE_SAMPLE_CHATDB, home_.database().string(), "--append", "700"}, {}});
    ASSERT_EQ(append.wait(), 0) << append.errors();
    const auto second = home_.scan();
    ASSERT_EQ(second.status, 0) << second.errors;
    const auto all = home_.sendableGuids();
    EXPECT_GT(all.size(), expected.size());
    EXPECT_EQ(home_.storedGuids(), std::set<std::string>(all.begin(), all.end()));
    EXPECT_THAT(home_.leftovers(), IsEmpty());
}

TEST_F(EndToEndTest, AMessageInTwoChatsIsStoredOnce) {
    home_.makeSample({"--messages", "600", "--two-chat-share", "0.2"});
    ASSERT_EQ(home_.scan().status, 0);
    const auto sent = home_.sendableGuids();
    const std::set<std::string> distinct(sent.begin(), sent.end());
    EXPECT_GT(sent.size(), distinct.size());
    EXPECT_EQ(home_.storedGuids(), distinct);
}

TEST_F(EndToEndTest, TemporaryFailuresAreRetried) {
    home_.makeSample({"--messages", "300", "--no-two-chat"});
    home_.service().script(Fault::answer(429, ""));
    home_.service().script(Fault::refusal(503, "busy", "Busy."));
    const auto run = home_.scan({"--scope", "allThreads"});
    // The first fault hits the request for known handles, which a scan of all threads can do
    // without.
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 2U);
    EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
}

TEST_F(EndToEndTest, ABatchWhoseReplyIsLostIsSentAgainAndStoredOnce) {
    home_.makeSample({"--messages", "300", "--no-two-chat"});
    for (const Fault& kind :
         {Fault::acceptThenReset(), Fault::acceptThenCutOff(), Fault::reset(), Fault::cutOff()}) {
        home_.restartService();
        home_.forgetProgress();
        Fault fault = kind;
        fault.path = ScanHome::ingestPath;
        home_.service().script(fault, 2);
        const auto run = home_.scan();
        EXPECT_EQ(run.status, 0) << run.errors;
        EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 3U)
            << "one attempt is one request";
        EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
        const auto records = recordsIn(home_.traffic());
        EXPECT_EQ(records.size(), 3 * home_.sendableGuids().size());
    }
}

TEST_F(EndToEndTest, AfterFourFailuresTheNextScanSendsTheSameBatch) {
    home_.makeSample({"--messages", "1200", "--no-two-chat"});
    Fault lateFailure = Fault::refusal(500, "down", "Out of order.");
    lateFailure.path = ScanHome::ingestPath;
    Fault pass = Fault::delayed(0ms);
    pass.path = ScanHome::ingestPath;
    home_.service().script(pass);
    home_.service().script(lateFailure, 4);
    const auto failed = home_.scan();
    EXPECT_EQ(failed.status, 1);
    EXPECT_EQ(failed.error(), "Out of order.");
    EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 5U);
    const std::string state = contentOf(home_.state());
    EXPECT_THAT(state, Not(HasSubstr("messages.backfill.done=true")));

    const auto sentBefore = recordsIn(home_.traffic());
    const auto next = home_.scan();
    EXPECT_EQ(next.status, 0) << next.errors;
    const auto sent = recordsIn(home_.traffic());
    const auto firstCount = static_cast<std::ptrdiff_t>(failed.count("uploaded"));
    const auto batchSize = (static_cast<std::ptrdiff_t>(sentBefore.size()) - firstCount) / 4;
    const std::vector<std::string> failedBatch(
        sentBefore.begin() + firstCount, sentBefore.begin() + firstCount + batchSize);
    const std::vector<std::string> nextBatch(
        sent.begin() + static_cast<std::ptrdiff_t>(sentBefore.size()),
        sent.begin() + static_cast<std::ptrdiff_t>(sentBefore.size()) + batchSize);
    EXPECT_GT(batchSize, 0);
    EXPECT_EQ(failedBatch, nextBatch);
    EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
}

TEST_F(EndToEndTest, BatchesOutOfScopeAdvanceTheCursorAndSendNothing) {
    home_.makeSample({"--messages", "1200", "--no-two-chat"});
    home_.restartService();
    const auto run = home_.scan({"--scope", "knownContactsOnly"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.count("uploaded"), 0);
    EXPECT_GT(run.count("skippedOutOfScope"), 1000);
    EXPECT_GT(run.count("watermark"), 1000);
    EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 0U);
    EXPECT_EQ(home_.scan({"--scope", "knownContactsOnly"}).count("scanned"), 0);
}

TEST_F(EndToEndTest, OnlyThreadsWithKnownContactsAreSent) {
    {
        test::MessagesDatabaseBuilder database(home_.database());
        const auto known = database.addHandle("+1 (415) 555-0134");
        const auto unknown = database.addHandle("+14155550199");
        const auto knownChat =
            database.addChat({.guid = "known", .participants = {known, unknown}});
        const auto unknownChat = database.addChat({.guid = "unknown", .participants = {unknown}});
        database.addMessage({.guid = "in-scope", .text = "yes", .chats = {knownChat}});
        database.addMessage(
            {.guid = "out-of-scope", .text = "never-to-be-sent", .chats = {unknownChat}});
    }
    const auto run = home_.scan({"--scope", "knownContactsOnly"});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(home_.storedGuids(), std::set<std::string>{"in-scope"});
    EXPECT_THAT(home_.traffic(), Not(HasSubstr("never-to-be-sent")));
    EXPECT_THAT(home_.traffic(), Not(HasSubstr("out-of-scope")));
}

TEST_F(EndToEndTest, WithoutTheListOfKnownHandlesNothingIsReadOrSent) {
    home_.makeSample({"--messages", "50"});
    home_.service().script(Fault::refusal(500, "down", "Out of order."));
    const auto run = home_.scan({"--scope", "knownContactsOnly"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(
        run.error(),
        "Could not fetch the known-contact list, so this scan was skipped rather than reporting a "
        "false empty result: Out of order.");
    EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 0U);
    EXPECT_FALSE(std::filesystem::exists(home_.state()));
}

TEST_F(EndToEndTest, MetadataOnlySendsNoText) {
    home_.makeSample({"--messages", "1500"});
    std::vector<std::string> bodies;
    {
        tavrin::MessagesCollector collector(
            std::make_shared<tavrin::SQLiteDatabase>(home_.database().string()));
        tavrin::MessagesCollector::Options options;
        options.scope = tavrin::ThreadScope::AllThreads;
        options.batchLimit = 1'000'000;
        for (const tavrin::MessageRecord& record : collector.collect(0, options).records) {
            if (record.body) {
                bodies.push_back(*record.body);
            }
        }
    }
    ASSERT_GT(bodies.size(), 1000U);
    const auto found = [&bodies](const std::string& traffic) {
        return std::ranges::count_if(bodies, [&traffic](const std::string& body) {
            return traffic.find(body) != std::string::npos ||
                   traffic.find(escaped(body)) != std::string::npos;
        });
    };
    ASSERT_EQ(home_.scan({"--mode", "metadataOnly"}).status, 0);
    EXPECT_EQ(home_.service().storedCount(), home_.storedGuids().size());
    EXPECT_GT(home_.service().storedCount(), 1000U);
    EXPECT_EQ(found(home_.traffic()), 0);
    EXPECT_THAT(home_.traffic(), Not(HasSubstr("\"body\"")));

    // The search must find the texts when they are sent.
    home_.restartService();
    home_.forgetProgress();
    ASSERT_EQ(home_.scan({"--mode", "withBodies"}).status, 0);
    EXPECT_EQ(found(home_.traffic()), static_cast<std::ptrdiff_t>(bodies.size()));
}

TEST_F(EndToEndTest, APreviewIsRecordForRecordWhatTheServiceThenReceives) {
    home_.makeSample(
        {"--messages",
         "1200",
         "--seed",
         "77",
         "--chats",
         "40",
         "--without-column",
         "item_type",
         "--two-chat-share",
         "0.05",
         "--seconds-dates",
         "0.5",
         "--no-wal"});
    const auto preview = home_.scan({"--preview", (home_ / "preview.jsonl").string()});
    ASSERT_EQ(preview.status, 0) << preview.errors;
    EXPECT_EQ(home_.service().requestCount(), 0U);
    EXPECT_FALSE(std::filesystem::exists(home_.state())) << "a preview moves no progress";
    EXPECT_THAT(home_.leftovers(), IsEmpty());

    ASSERT_EQ(home_.scan().status, 0);
    const auto previewed = linesOf(contentOf(home_ / "preview.jsonl"));
    ASSERT_GT(previewed.size(), 1000U);
    EXPECT_EQ(previewed, recordsIn(home_.traffic()));
    const auto stored = home_.storedRecords();
    EXPECT_TRUE(std::ranges::includes(
        std::set(previewed.begin(), previewed.end()), std::set(stored.begin(), stored.end())));
}

TEST_F(EndToEndTest, APreviewOfKnownContactsReadsTheirHandlesFromAFile) {
    home_.makeSample({"--messages", "400", "--known-handles-out", (home_ / "known.json").string()});
    const auto all = home_.scan({"--preview", (home_ / "all.jsonl").string()});
    ASSERT_EQ(all.status, 0);
    const auto known = home_.scan(
        {"--preview",
         (home_ / "some.jsonl").string(),
         "--scope",
         "knownContactsOnly",
         "--known-handles",
         (home_ / "known.json").string()});
    ASSERT_EQ(known.status, 0) << known.errors;
    const auto some = linesOf(contentOf(home_ / "some.jsonl")).size();
    EXPECT_GT(some, 0U);
    EXPECT_LT(some, linesOf(contentOf(home_ / "all.jsonl")).size());
    const auto none = home_.scan({"--preview", "--scope", "knownContactsOnly"});
    EXPECT_EQ(none.status, 2);
    EXPECT_THAT(none.errors, HasSubstr("--known-handles"));
}

TEST_F(EndToEndTest, ASignalEndsTheScanAndRemovesTheCopy) {
    home_.makeSample({"--messages", "800", "--no-two-chat"});
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        home_.restartService();
        home_.forgetProgress();
        Fault hang = Fault::delayed(10min);
        hang.path = ScanHome::ingestPath;
        home_.service().script(hang);
        Program program(home_.command());
        ASSERT_TRUE(home_.service().waitForRequests(2, 60s)) << program.errors();
        EXPECT_EQ(home_.leftovers().size(), 1U);
        program.signal(number);
        const auto run = ScanHome::finish(program);
        EXPECT_EQ(run.status, 128 + number) << run.errors;
        EXPECT_THAT(home_.leftovers(), IsEmpty());
    }
}

#ifdef HANGING_OPEN
TEST_F(EndToEndTest, ADatabaseThatCannotBeOpenedDoesNotKeepItFromEnding) {
    home_.makeSample({"--messages", "10", "--no-two-chat"});
    Program::Options options = home_.command({"--preview"});
    options.environment["LD_PRELOAD"] = HANGING_OPEN;
    options.environment["HANGING_OPEN_PATH"] = home_.database().string();
    options.environment["HANGING_OPEN_MARK"] = (home_ / "is-hanging").string();
    const char* sanitizer = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] =
        (sanitizer != nullptr ? std::string(sanitizer) + ":" : "") + "verify_asan_link_order=0";
    Program program(options);
    ASSERT_TRUE(
        test::waitUntil([this] { return std::filesystem::exists(home_ / "is-hanging"); }, 60s));
    const auto start = std::chrono::steady_clock::now();
    program.signal(SIGTERM);
    EXPECT_EQ(program.waitFor(9s), 128 + SIGTERM) << program.errors();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms);
    EXPECT_THAT(home_.leftovers(), IsEmpty());
}
#endif

TEST_F(EndToEndTest, ItPausesBetweenBatchesOfHistoryAndASignalEndsThePause) {
    home_.makeSample({"--messages", "1200", "--no-two-chat"});
    Program program(home_.command({"--backfill-pause", "3600"}));
    // The list of known handles and one batch. The third request follows after an hour.
    ASSERT_TRUE(home_.service().waitForRequests(2, 60s)) << program.errors();
    EXPECT_FALSE(home_.service().waitForRequests(3, 500ms));
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 128 + SIGTERM);
    EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 1U);
    EXPECT_THAT(home_.leftovers(), IsEmpty());
    EXPECT_EQ(home_.scan().status, 0);
    EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
}

TEST_F(EndToEndTest, AnUnexpectedSchemaIsReportedAndNothingIsSent) {
    {
        test::MessagesDatabaseBuilder database(home_.database());
        database.execute("ALTER TABLE message RENAME COLUMN date TO moment");
    }
    const auto run = home_.scan();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(
        run.error(),
        "chat.db schema unexpected: column `message.date` not found. Messages may have changed its "
        "schema — collection is paused rather than silently returning nothing.");
    EXPECT_EQ(home_.service().requestCount(ScanHome::ingestPath), 0U);
}

TEST_F(EndToEndTest, AMissingDatabaseIsReported) {
    const auto run = home_.scan();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.error(), "Messages database not found at " + home_.database().string());
}

TEST_F(EndToEndTest, AFileThatIsNotADatabaseIsAnError) {
    std::ofstream(home_.database()) << std::string(100'000, 'x');
    const auto run = home_.scan();
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.error(), HasSubstr("file is not a database"));
    EXPECT_THAT(home_.leftovers(), IsEmpty());
}

TEST_F(EndToEndTest, ATruncatedDatabaseIsAnError) {
    home_.makeSample({"--messages", "1500", "--no-wal"});
    std::filesystem::resize_file(
        home_.database(), std::filesystem::file_size(home_.database()) / 2);
    const auto run = home_.scan();
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.error(), HasSubstr("malformed"));
    EXPECT_THAT(home_.leftovers(), IsEmpty());
}

TEST_F(EndToEndTest, WithAnUnknownCertificateAuthorityNothingIsSent) {
    home_.makeSample({"--messages", "50"});
    auto command = home_.command();
    const auto option = std::ranges::find(command.arguments, "--ca-file");
    command.arguments.erase(option, option + 2);
    Program program(command);
    const auto run = ScanHome::finish(program);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.error(), Not(IsEmpty()));
    EXPECT_EQ(home_.service().requestCount(), 0U);
}

TEST_F(EndToEndTest, ARedirectIsNotFollowed) {
    home_.makeSample({"--messages", "50"});
    Fault redirect = Fault::answer(307, "");
    redirect.path = ScanHome::ingestPath;
    redirect.reply->headers.emplace_back(
        "Location", home_.service().url() + "/api/v1/context/diagnostics");
    home_.service().script(redirect);
    const auto run = home_.scan();
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.error(), "HTTP 307");
    EXPECT_EQ(home_.service().requestCount("/api/v1/context/diagnostics"), 0U);
}

TEST_F(EndToEndTest, TheTokenIsNeverPrinted) {
    home_.makeSample({"--messages", "50"});
    const auto good = home_.scan({"--verbose"});
    EXPECT_EQ(good.status, 0);
    EXPECT_THAT(good.errors, HasSubstr("scan starting"));
    std::ofstream(home_ / "token") << ScanHome::token << "-not-accepted";
    home_.forgetProgress();
    const auto refused = home_.scan({"--verbose"});
    EXPECT_EQ(refused.status, 1);
    for (const auto* run : {&good, &refused}) {
        EXPECT_THAT(run->output, Not(HasSubstr(ScanHome::token)));
        EXPECT_THAT(run->errors, Not(HasSubstr(ScanHome::token)));
    }
    EXPECT_THAT(contentOf(home_.state()), Not(HasSubstr(ScanHome::token)));
}

TEST_F(EndToEndTest, ProgressAndSummaryArePrintedAsPlainText) {
    home_.makeSample({"--messages", "50"});
    auto command = home_.command();
    std::erase(command.arguments, "--json");
    Program program(command);
    EXPECT_EQ(program.wait(), 0);
    EXPECT_THAT(program.output(), testing::StartsWith("Scan done.\n"));
    EXPECT_THAT(program.output(), HasSubstr("Sent and accepted"));
}

TEST_F(EndToEndTest, AStateWithoutAFolderIsAFileInTheCurrentFolder) {
    home_.makeSample({"--messages", "20", "--no-two-chat"});
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(home_.temporary());
    const auto run = home_.scan({"--state", "progress"});
    const auto again = home_.scan({"--state", "progress"});
    std::filesystem::current_path(before);
    EXPECT_EQ(run.status, 0) << run.error();
    EXPECT_TRUE(std::filesystem::exists(home_.temporary() / "progress"));
    EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
    EXPECT_EQ(again.count("uploaded"), 0);
}

} // namespace orvel
