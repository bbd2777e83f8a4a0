// SPDX-License-Identifier: Apache-2.0
//
// Copies of a database while another process changes it.
#include "core/CancellationToken.h"
#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/messages/ChatDatabaseSnapshot.h"
#include "core/messages/FileCopier.h"
#include "core/messages/SQLiteDatabase.h"
#include "tests/campaign/RandomChanges.h"
#include "tests/platform/RealFileCopier.h"
#include "tests/support/Campaign.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WritingProcess.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>

namespace orvel::test {

namespace {

using tavrin::ChatDatabaseSnapshot;
using tavrin::FileDescriptor;
using tavrin::PlatformError;
using tavrin::SQLiteDatabase;

/// Reads files in small pieces, and lets the writer make some steps between them.
class SlowFileCopier final : public tavrin::FileCopier {
public:
    SlowFileCopier(std::size_t pieceSize, std::function<void()> beforeEachPiece)
        : pieceSize_(pieceSize), beforeEachPiece_(std::move(beforeEachPiece)) {}

    void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const tavrin::CancellationToken&) override {
        beforeEachPiece_();
        const FileDescriptor from(open(source.c_str(), O_RDONLY | O_CLOEXEC));
        const FileDescriptor to(
            open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        std::string piece(pieceSize_, '\0');
        ssize_t size = 0;
        while ((size = read(from.get(), piece.data(), piece.size())) > 0) {
            if (write(to.get(), piece.data(), static_cast<std::size_t>(size)) != size) {
                size = -1;
                break;
            }
            beforeEachPiece_();
        }
        if (size < 0) {
            const int error = errno;
            unlink(destination.c_str());
            throw PlatformError::fromErrno(error, "Could not read " + source.filename().string());
        }
    }

private:
    std::size_t pieceSize_;
    std::function<void()> beforeEachPiece_;
};

class Copying final {
public:
    explicit Copying(unsigned seed)
        : random_(seed),
          writer_([this, writerSeed = static_cast<unsigned>(random_())](auto& committed) {
              return std::make_unique<RandomChanges>(directory_ / "chat.db", writerSeed, committed);
          }),
          isStepped_(random_() % 2 == 0) {}

    CampaignResult run() {
        const int stepsBefore = below(120);
        std::unique_ptr<tavrin::FileCopier> copier;
        if (isStepped_) {
            static constexpr std::array sizes{512, 4096, 20'000, 200'000};
            const auto size = static_cast<std::size_t>(sizes.at(random_() % sizes.size()));
            stepsBetweenPieces_ = 1 + below(6);
            // Not for ever: a writer that never pauses may prevent every copy.
            stepsLeft_ = below(400);
            copier = std::make_unique<SlowFileCopier>(size, [this] { makeSomeSteps(); });
            makeSteps(stepsBefore);
        } else {
            copier = makeRealFileCopier();
            writer_.begin({.steps = WritingProcess::endless});
            writer_.awaitSteps(stepsBefore);
        }
        const std::int64_t committed = writer_.committed();
        try {
            const ChatDatabaseSnapshot snapshot(*copier, directory_ / "chat.db");
            check(snapshot, committed);
        } catch (const ChatDatabaseSnapshot::Error& error) {
            // A refused copy is not a wrong one.
            const std::string text = error.what();
            result_.units = 0;
            if (text.find("kept changing") == std::string::npos &&
                text.find("an unfinished change") == std::string::npos) {
                find(text);
            }
        }
        return result_;
    }

private:
    int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

    void makeSteps(int steps) {
        writer_.begin({.steps = steps});
        writer_.finish();
    }

    void makeSomeSteps() {
        const int steps = std::min(stepsLeft_, below(stepsBetweenPieces_ + 1));
        stepsLeft_ -= steps;
        makeSteps(steps);
    }

    void check(const ChatDatabaseSnapshot& snapshot, std::int64_t committed) {
        if (snapshot.logCopyFailure()) {
            find("the log was not copied: " + *snapshot.logCopyFailure());
        }
        try {
            const std::shared_ptr<SQLiteDatabase> copy = snapshot.open();
            copy->query("PRAGMA integrity_check", {}, [&](const SQLiteDatabase::Row& row) {
                if (const std::string text = row.string(0).value_or("NULL"); text != "ok") {
                    find("integrity_check: " + text);
                }
            });
            const auto number = [&](const char* sql) {
                std::int64_t value = -1;
                copy->query(
                    sql, {}, [&](const SQLiteDatabase::Row& row) { value = row.integer(0); });
                return value;
            };
            const std::int64_t last = number("SELECT number FROM total");
            if (last < committed) {
                find(fmt::format(
                    "transaction {} was committed before, the copy ends with {}", committed, last));
            }
            const std::int64_t rows = number("SELECT rows FROM total");
            const std::int64_t versions = number("SELECT versions FROM total");
            const std::int64_t foundRows = number("SELECT COUNT(*) FROM entry");
            const std::int64_t foundVersions =
                number("SELECT COALESCE(SUM(version), 0) FROM entry");
            if (rows != foundRows || versions != foundVersions) {
                find(fmt::format(
                    "transaction {} has {} rows and the sum {}, not {} and {}",
                    last,
                    rows,
                    versions,
                    foundRows,
                    foundVersions));
            }
        } catch (const std::exception& error) {
            find(std::string("the copy cannot be read: ") + error.what());
        }
    }

    void find(const std::string& what) {
        result_.findings.push_back(
            fmt::format("{} ({})", what, isStepped_ ? "in steps" : "running"));
    }

    std::mt19937 random_;
    TemporaryDirectory directory_;
    WritingProcess writer_;
    bool isStepped_;
    int stepsBetweenPieces_ = 0;
    int stepsLeft_ = 0;
    CampaignResult result_{1, {}};
};

} // namespace

TEST(SnapshotCampaignTest, NoCopyIsTornOrLacksACommittedTransaction) {
    int refused = 0;
    runCampaign(20, [&](unsigned seed) {
        CampaignResult result = Copying(seed).run();
        refused += result.units == 0 ? 1 : 0;
        return result;
    });
    std::cout << refused << " refused" << std::endl;
}

} // namespace orvel::test
