// SPDX-License-Identifier: Apache-2.0

// Measures scans. Each value has a reference from the same run: a bare SQLite loop, `cp`, or the
// other end of the database.

#include "OrvelAgent/base/Configuration.h"
#include "OrvelAgent/base/Worker.h"
#include "OrvelAgent/network/JSONCoding.h"
#include "OrvelAgent/scan/CollectorService.h"
#include "OrvelAgent/scan/IdentityEnricher.h"
#include "OrvelAgent/scan/IngestClient.h"
#include "OrvelAgent/scan/ScanDefaults.h"
#include "bench/BenchmarkTable.h"
#include "bench/ChildProcess.h"
#include "core/messages/ChatDatabaseSnapshot.h"
#include "core/messages/HandleNormalizer.h"
#include "core/messages/MessagesCollector.h"
#include "core/messages/SQLiteDatabase.h"
#include "platform/Platform.h"

#include <QCoreApplication>
#include <QTimer>

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvel::bench {

namespace {

namespace fs = std::filesystem;
using tavrin::MessagesCollector;
using Stopwatch = std::chrono::steady_clock;

constexpr int rounds = 5;
constexpr std::int64_t newest = std::numeric_limits<std::int64_t>::max();

double secondsOf(const std::function<void()>& operation) {
    const auto start = Stopwatch::now();
    operation();
    return std::chrono::duration<double>(Stopwatch::now() - start).count();
}

/// Keeps the optimizer from removing computations whose result is unused.
volatile std::uint64_t sink = 0;

MessagesCollector::Options optionsWithBodies() {
    MessagesCollector::Options options;
    options.mode = tavrin::CollectionMode::WithBodies;
    options.scope = tavrin::ThreadScope::AllThreads;
    options.batchLimit = ScanDefaults::batchSize;
    return options;
}

/// An identity index with every second handle of the database.
std::shared_ptr<const ContactBridge::IdentityIndex> sampleIndex(const fs::path& databasePath) {
    auto index = std::make_shared<ContactBridge::IdentityIndex>();
    tavrin::SQLiteDatabase database(databasePath.string());
    int number = 0;
    database.query("SELECT id FROM handle ORDER BY ROWID", {}, [&](const auto& row) {
        const auto handle = row.string(0);
        const auto hint =
            handle ? tavrin::HandleNormalizer::matchHint(tavrin::Handle::classify(*handle))
                   : std::nullopt;
        if (hint && ++number % 2 == 0) {
            ContactBridge::Identity identity;
            identity.name = fmt::format("Sample Person {}", number);
            identity.emails = {fmt::format("person{}@example.com", number)};
            index->insert_or_assign(*hint, std::move(identity));
        }
    });
    return index;
}

/// Runs the collector's own statement for the whole history with SQLite alone: reads every column
/// and stores nothing. Returns the number of rows.
std::int64_t bareLoop(const fs::path& databasePath) {
    constexpr const char* statementText =
        "SELECT m.ROWID, m.guid, m.date, m.is_from_me, m.service, m.cache_has_attachments, m.text, "
        "m.attributedBody, h.id, cmj.chat_id, m.associated_message_type, m.item_type\n"
        "FROM message m\n"
        "LEFT JOIN handle h ON h.ROWID = m.handle_id\n"
        "LEFT JOIN chat_message_join cmj ON cmj.message_id = m.ROWID\n"
        "WHERE m.ROWID < ?\n"
        "ORDER BY m.ROWID DESC\n"
        "LIMIT ?";
    sqlite3* database = nullptr;
    sqlite3_stmt* statement = nullptr;
    const std::string uri = "file:" + databasePath.string() + "?mode=ro";
    if (sqlite3_open_v2(uri.c_str(), &database, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr) !=
            SQLITE_OK ||
        sqlite3_prepare_v2(database, statementText, -1, &statement, nullptr) != SQLITE_OK) {
        throw std::runtime_error(sqlite3_errmsg(database));
    }
    std::int64_t rows = 0;
    std::int64_t bound = newest;
    std::uint64_t touched = 0;
    bool hasMore = true;
    while (hasMore) {
        sqlite3_bind_int64(statement, 1, bound);
        sqlite3_bind_int64(statement, 2, ScanDefaults::batchSize + 1);
        std::int64_t inBatch = 0;
        std::int64_t ofMessage = 0;
        hasMore = false;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            if (inBatch == ScanDefaults::batchSize) {
                hasMore = true;
                // A message in several chats has a row for each. It belongs to one batch.
                if (sqlite3_column_int64(statement, 0) == bound) {
                    inBatch -= ofMessage;
                    ++bound;
                }
                break;
            }
            ++inBatch;
            const std::int64_t message = sqlite3_column_int64(statement, 0);
            ofMessage = message == bound ? ofMessage + 1 : 1;
            bound = message;
            for (const int column : {0, 2, 3, 5, 9, 10, 11}) {
                touched += static_cast<std::uint64_t>(sqlite3_column_int64(statement, column));
            }
            for (const int column : {1, 4, 6, 8}) {
                const unsigned char* text = sqlite3_column_text(statement, column);
                touched += text != nullptr ? *text : 0U;
                touched += static_cast<std::uint64_t>(sqlite3_column_bytes(statement, column));
            }
            const void* blob = sqlite3_column_blob(statement, 7);
            touched += blob != nullptr ? *static_cast<const unsigned char*>(blob) : 0U;
            touched += static_cast<std::uint64_t>(sqlite3_column_bytes(statement, 7));
        }
        rows += inBatch;
        sqlite3_reset(statement);
    }
    sink = sink + touched;
    sqlite3_finalize(statement);
    sqlite3_close_v2(database);
    return rows;
}

/// Runs all steps between database and network for all batches. Returns the number of rows.
std::int64_t pipeline(
    const fs::path& databasePath,
    const std::shared_ptr<const ContactBridge::IdentityIndex>& index) {
    MessagesCollector collector(std::make_shared<tavrin::SQLiteDatabase>(databasePath.string()));
    IdentityEnricher enricher(index);
    JSONEncoder encoder;
    const MessagesCollector::Options options = optionsWithBodies();
    std::int64_t rows = 0;
    std::int64_t cursor = newest;
    bool hasMore = true;
    while (hasMore) {
        MessagesCollector::Batch batch = collector.collectBackfill(cursor, options);
        rows += batch.scanned;
        cursor = batch.lowWatermark;
        hasMore = batch.hasMore;
        enricher.enrich(batch.records);
        IngestClient::Payload payload;
        payload.source = "imessage";
        payload.client = "mac/0.0.0";
        payload.records = std::make_shared<const IngestClient::Records>(std::move(batch.records));
        payload.watermark = batch.highWatermark;
        sink = sink + encoder.encode(payload).size();
    }
    return rows;
}

Line measurePipeline(const fs::path& databasePath) {
    const auto index = sampleIndex(databasePath);
    std::vector<double> bare;
    std::vector<double> whole;
    std::int64_t rows = bareLoop(databasePath); // warms the page cache
    for (int round = 0; round < rounds; ++round) {
        bare.push_back(secondsOf([&] { rows = bareLoop(databasePath); }));
        whole.push_back(secondsOf([&] {
            if (pipeline(databasePath, index) != rows) {
                throw std::runtime_error("The collector and the bare loop saw different rows.");
            }
        }));
    }
    Line line;
    line.what = "Collect, decode, enrich and encode all batches ÷ bare SQLite loop";
    line.measured = fmt::format("{:.2f} s for {} rows", median(whole), rows);
    line.floor = fmt::format("{:.2f} s", median(bare));
    line.value = median(whole) / median(bare);
    line.target = 2.0;
    line.unit = " ×";
    return line;
}

Line measureEnds(const fs::path& databasePath) {
    MessagesCollector collector(std::make_shared<tavrin::SQLiteDatabase>(databasePath.string()));
    const MessagesCollector::Options options = optionsWithBodies();
    constexpr int batchesPerEnd = 40;
    const auto walkBack = [&](std::int64_t cursor) {
        for (int batch = 0; batch < batchesPerEnd; ++batch) {
            cursor = collector.collectBackfill(cursor, options).lowWatermark;
        }
    };
    // Start at a row that leaves the same number of batches down to the oldest row.
    std::int64_t oldestStart = 0;
    for (int batch = 0; batch < batchesPerEnd; ++batch) {
        oldestStart = collector.collect(oldestStart, options).highWatermark;
    }
    walkBack(newest);
    std::vector<double> oldest;
    std::vector<double> recent;
    for (int round = 0; round < rounds; ++round) {
        oldest.push_back(secondsOf([&] { walkBack(oldestStart + 1); }));
        recent.push_back(secondsOf([&] { walkBack(newest); }));
    }
    Line line;
    line.what = "One batch at the oldest end ÷ one at the newest end";
    line.measured = fmt::format("{:.2f} ms", median(oldest) * 1000 / batchesPerEnd);
    line.floor = fmt::format("{:.2f} ms", median(recent) * 1000 / batchesPerEnd);
    line.value = median(oldest) / median(recent);
    line.target = 1.2;
    line.unit = " ×";
    return line;
}

Line measureSnapshot(const fs::path& databasePath, const fs::path& scratch, Platform& platform) {
    std::vector<double> copies;
    std::vector<double> snapshots;
    std::vector<std::string> files = {databasePath.string()};
    for (const char* suffix : {"-wal", "-shm"}) {
        if (fs::exists(databasePath.string() + suffix)) {
            files.push_back(databasePath.string() + suffix);
        }
    }
    for (int round = 0; round < rounds; ++round) {
        const fs::path target = scratch / "cp";
        fs::create_directories(target);
        std::vector<std::string> command = {"cp", "--reflink=auto"};
        command.insert(command.end(), files.begin(), files.end());
        command.push_back(target.string());
        copies.push_back(secondsOf([&] { runProgram(command); }));
        fs::remove_all(target);
        std::unique_ptr<tavrin::ChatDatabaseSnapshot> snapshot;
        snapshots.push_back(secondsOf([&] {
            snapshot = std::make_unique<tavrin::ChatDatabaseSnapshot>(
                *platform.fileCopier, databasePath.string());
        }));
    }
    Line line;
    line.what = "Snapshot ÷ `cp --reflink=auto` of the same files";
    line.measured = fmt::format("{:.0f} ms", median(snapshots) * 1000);
    line.floor = fmt::format("{:.0f} ms", median(copies) * 1000);
    line.value = median(snapshots) / median(copies);
    line.target = 1.1;
    line.unit = " ×";
    return line;
}

/// Links files instead of copying them, to measure a scan without the copy.
class LinkingFileCopier final : public tavrin::FileCopier {
public:
    void copy(const fs::path& source, const fs::path& destination, const tavrin::CancellationToken&)
        override {
        fs::create_hard_link(source, destination);
    }
};

/// Runs the local service during a measurement and provides its URL and certificate.
class LocalServiceProcess final {
public:
    LocalServiceProcess(const fs::path& programs, const fs::path& directory)
        : process_(
              {(programs / "orvel-local-service").string(),
               "--port",
               "0",
               "--store",
               (directory / "records.sqlite").string(),
               "--cert-dir",
               (directory / "certificates").string(),
               "--token",
               "benchmark",
               "--quiet",
               "--exit-with-parent"}) {
        // orvel-local-service ready at URL (certificate authority: PATH)
        const std::string ready = process_.readLine();
        const auto url = ready.find("https://");
        const auto space = ready.find(' ', url);
        const auto path = ready.find(": ", space);
        if (url == std::string::npos || path == std::string::npos || ready.back() != ')') {
            throw std::runtime_error("The local service did not start: " + ready);
        }
        url_ = ready.substr(url, space - url);
        certificate_ = ready.substr(path + 2, ready.size() - path - 3);
    }

    [[nodiscard]] const std::string& url() const { return url_; }
    [[nodiscard]] const std::string& certificate() const { return certificate_; }

private:
    ChildProcess process_;
    std::string url_;
    std::string certificate_;
};

QCoro::Task<std::optional<tavrin::Secret>> provideToken() {
    co_return std::optional<tavrin::Secret>(std::string("benchmark"));
}

/// Runs scans with the agent's services in this process.
class InProcessScan final {
public:
    InProcessScan(
        Platform& platform,
        tavrin::FileCopier& copier,
        const fs::path& databasePath,
        const std::string& serviceURL)
        : configuration_(*platform.bundle),
          store_(*platform.userDefaults),
          service_(
              store_,
              IngestClient(
                  APIClient(
                      *platform.urlSession,
                      worker_,
                      configuration_,
                      serviceURL,
                      provideToken,
                      IngestClient::requestTimeout),
                  configuration_.shortVersion()),
              copier,
              *platform.clock,
              worker_,
              *platform.logStore,
              optionsFor(databasePath)) {}

    WatermarkStore& store() { return store_; }

    CollectorService::ScanSummary run() {
        std::optional<CollectorService::ScanSummary> summary;
        QCoro::Task<> task = runAndQuit(&service_, &summary);
        QCoreApplication::exec();
        if (!summary || summary->error) {
            throw std::runtime_error(
                "The scan failed: " + (summary ? *summary->error : std::string("refused")));
        }
        return *summary;
    }

private:
    static CollectorService::Options optionsFor(const fs::path& databasePath) {
        CollectorService::Options options;
        options.sourcePath = databasePath.string();
        options.backfillPause = tavrin::Seconds(0);
        return options;
    }

    static QCoro::Task<>
    runAndQuit(CollectorService* service, std::optional<CollectorService::ScanSummary>* summary) {
        ScanPlan plan;
        plan.session.tokenProvider = provideToken;
        plan.startedAt = std::chrono::system_clock::now();
        plan.mode = tavrin::CollectionMode::WithBodies;
        plan.scope = tavrin::ThreadScope::AllThreads;
        *summary = co_await service->runScan(std::move(plan));
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), &QCoreApplication::quit, Qt::QueuedConnection);
    }

    Configuration configuration_;
    Worker worker_;
    WatermarkStore store_;
    CollectorService service_;
};

PlatformOptions platformOptions(const fs::path& scratch, const std::string& certificate) {
    PlatformOptions options;
    setenv("XDG_CONFIG_HOME", scratch.c_str(), 1);
    if (!certificate.empty()) {
        options.extraCertificates.emplace_back(certificate);
    }
    return options;
}

Line measureNothingNew(const fs::path& databasePath, const fs::path& scratch) {
    Platform platform = makePlatform(platformOptions(scratch, {}));
    LinkingFileCopier copier;
    InProcessScan scan(platform, copier, databasePath, "https://127.0.0.1:1");
    scan.store().setBackfillDone(true);
    // A higher watermark would mean that the database was rebuilt.
    scan.store().setWatermark(
        MessagesCollector(std::make_shared<tavrin::SQLiteDatabase>(databasePath.string()))
            .highestRowID());
    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        times.push_back(secondsOf([&] { scan.run(); }));
    }
    Line line;
    line.what = "A scan that finds nothing new, without the copy";
    line.measured = fmt::format("{:.0f} ms", median(times) * 1000);
    line.floor = "–";
    line.value = median(times) * 1000;
    line.target = 300;
    line.unit = " ms";
    return line;
}

Line measureMainThread(
    const fs::path& programs, const fs::path& databasePath, const fs::path& scratch) {
    const LocalServiceProcess service(programs, scratch / "probe-service");
    Platform platform =
        makePlatform(platformOptions(scratch / "probe-state", service.certificate()));
    InProcessScan scan(platform, *platform.fileCopier, databasePath, service.url());
    QTimer probe;
    probe.setTimerType(Qt::PreciseTimer);
    std::vector<double> gaps;
    auto last = Stopwatch::now();
    QObject::connect(&probe, &QTimer::timeout, &probe, [&] {
        const auto now = Stopwatch::now();
        gaps.push_back(std::chrono::duration<double, std::milli>(now - last).count() - 1);
        last = now;
    });
    probe.start(1);
    const auto summary = scan.run();
    std::ranges::sort(gaps);
    Line line;
    line.what = "Longest delay of the main thread during a whole scan";
    line.measured = fmt::format(
        "{:.1f} ms; 99.9 % of {} probes within {:.1f} ms; {} messages sent over HTTPS",
        gaps.back(),
        gaps.size(),
        gaps[gaps.size() * 999 / 1000],
        summary.uploaded);
    line.floor = "–";
    line.value = gaps.back();
    line.target = 16;
    line.unit = " ms";
    return line;
}

std::int64_t
scanPeak(const fs::path& programs, const fs::path& databasePath, const fs::path& scratch) {
    fs::create_directories(scratch);
    const LocalServiceProcess service(programs, scratch);
    return runProgram({(programs / "orvel-scan").string(),
                       "--api-url",
                       service.url(),
                       "--ca-file",
                       service.certificate(),
                       "--source",
                       databasePath.string(),
                       "--state",
                       (scratch / "defaults.conf").string(),
                       "--token",
                       "benchmark",
                       "--scope",
                       "allThreads",
                       "--mode",
                       "withBodies",
                       "--address-book",
                       "none",
                       "--backfill-pause",
                       "0",
                       "--json"})
        .peakKibibytes;
}

std::vector<Line> measureMemory(
    const fs::path& programs,
    const fs::path& large,
    const fs::path& small,
    const fs::path& scratch) {
    const double ofLarge = static_cast<double>(scanPeak(programs, large, scratch / "large")) / 1024;
    const double ofSmall = static_cast<double>(scanPeak(programs, small, scratch / "small")) / 1024;
    Line peak;
    peak.what = "Peak memory of a whole scan, `orvel-scan`";
    peak.measured = fmt::format("{:.1f} MiB", ofLarge);
    peak.floor = "–";
    peak.value = ofLarge;
    peak.target = 60;
    peak.unit = " MiB";
    Line growth;
    growth.what = "Peak memory ÷ that for a database a tenth as large";
    growth.measured = fmt::format("{:.1f} MiB", ofLarge);
    growth.floor = fmt::format("{:.1f} MiB", ofSmall);
    growth.value = ofLarge / ofSmall;
    growth.target = 1.1;
    growth.unit = " ×";
    return {peak, growth};
}

fs::path
sampleDatabase(const fs::path& programs, const fs::path& directory, std::int64_t messages) {
    const fs::path path = directory / fmt::format("sample-{}", messages) / "chat.db";
    if (!fs::exists(path)) {
        fmt::print(stderr, "Creating a sample database of {} messages…\n", messages);
        runProgram(
            {(programs / "make-sample-chatdb").string(),
             path.string(),
             "--messages",
             fmt::format("{}", messages),
             "--chats",
             "2000"});
    }
    return path;
}

int run(const fs::path& directory, const fs::path& document, std::int64_t messages) {
    const fs::path programs = fs::path(QCoreApplication::applicationDirPath().toStdString());
    const fs::path scratch = directory / "scratch";
    fs::remove_all(scratch);
    fs::create_directories(scratch);
    setenv("TMPDIR", scratch.c_str(), 1);
    const fs::path large = sampleDatabase(programs, directory, messages);
    const fs::path small = sampleDatabase(programs, directory, messages / 10);
    Platform platform = makePlatform(platformOptions(scratch / "state", {}));

    std::vector<Line> lines;
    const auto measure = [&lines](Line line) {
        fmt::print(stderr, "{}: {:.2f}{}\n", line.what, line.value, line.unit);
        lines.push_back(std::move(line));
    };
    measure(measurePipeline(large));
    measure(measureEnds(large));
    measure(measureSnapshot(large, scratch, platform));
    measure(measureNothingNew(large, scratch / "nothing-new"));
    for (Line& line : measureMemory(programs, large, small, scratch / "memory")) {
        measure(std::move(line));
    }
    measure(measureMainThread(programs, large, scratch / "main-thread"));
    fs::remove_all(scratch);

    const std::string figures = fmt::format(
        "{}{} messages in {} MB, 2,000 chats, page cache warm; medians of {} rounds.\n\n{}",
        machineDescription(directory),
        messages,
        fs::file_size(large) / 1'000'000,
        rounds,
        table(lines));
    fmt::print("{}", figures);
    if (!document.empty()) {
        writeFigures(document, "scan", figures);
    }
    return 0;
}

} // namespace

} // namespace orvel::bench

int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty() || arguments.size() > 3 || arguments[0] == "--help") {
        fmt::print(
            "Usage: scan_bench DIRECTORY [DOCUMENT [MESSAGES]]\n\n"
            "Measures scans of a sample database of 1,000,000 messages, which it keeps in the\n"
            "directory, prints the table and writes it between the markers of the document.\n");
        return arguments.empty() || arguments[0] != "--help" ? 2 : 0;
    }
    try {
        return orvel::bench::run(
            std::filesystem::absolute(arguments[0]),
            arguments.size() > 1 ? arguments[1] : "",
            arguments.size() > 2 ? std::stoll(arguments[2]) : 1'000'000);
    } catch (const std::exception& error) {
        fmt::print(stderr, "scan_bench: {}\n", error.what());
        return 1;
    }
}
