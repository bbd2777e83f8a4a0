// SPDX-License-Identifier: Apache-2.0
#include "core/Text.h"
#include "core/messages/MessagesCollector.h"
#include "core/messages/SQLiteDatabase.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/messages/MessagesDatabaseBuilder.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>

namespace tavrin {

namespace {

using orvel::test::MessagesDatabaseBuilder;
using orvel::test::TemporaryDirectory;

constexpr std::size_t messageCount = 30;

/// A sample with small pages, so that a short file contains every kind of page: interior and leaf
/// pages of tables and indexes, and overflow pages.
void makeSample(const std::filesystem::path& path) {
    MessagesDatabaseBuilder builder(path);
    builder.execute("PRAGMA page_size = 512");
    builder.execute("VACUUM");
    builder.inOneTransaction([&builder] {
        std::vector<std::int64_t> handles;
        for (const char* id : {"+14155550134", "ann@example.com", "ben@example.com", "72975"}) {
            handles.push_back(builder.addHandle(id));
        }
        std::vector<std::int64_t> chats;
        for (int i = 0; i < 6; ++i) {
            chats.push_back(builder.addChat(
                {.guid = "chat-" + std::to_string(i),
                 .participants = {handles[i % 4U], handles[(i + 1) % 4U]},
                 .style = i % 2 == 0 ? 43 : 45}));
        }
        for (std::size_t i = 0; i < messageCount; ++i) {
            const std::string text = "text " + std::to_string(i);
            const bool isArchived = i % 3 == 0;
            builder.addMessage(
                {.guid = "guid-" + std::to_string(i),
                 .date = MessagesDatabaseBuilder::someDate + static_cast<std::int64_t>(i),
                 .isFromMe = i % 2 == 0,
                 .text = isArchived ? std::nullopt : std::optional(text),
                 .attributedBody = isArchived ? std::optional(
                                                    "NSString\x01+" +
                                                    std::string(1, static_cast<char>(text.size())) +
                                                    text + std::string(i == 15 ? 1500 : 0, 'x'))
                                              : std::nullopt,
                 .handle = handles[i % 4U],
                 .chats = {chats[i % 6U]},
                 .itemType = i % 10 == 9 ? 1 : 0});
        }
    });
}

std::string content(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void write(const std::filesystem::path& path, std::string_view content) {
    std::ofstream(path, std::ios::binary) << content;
}

/// Counts the results of reading damaged files.
struct Tally {
    int read = 0;
    int refused = 0;

    [[nodiscard]] int total() const { return read + refused; }
};

std::ostream& operator<<(std::ostream& out, const Tally& tally) {
    return out << tally.total() << " files: " << tally.read << " read to the end, " << tally.refused
               << " refused";
}

/// Collects all batches in one direction. No damaged sample can have more than `mostBatches`.
void walk(MessagesCollector& collector, bool ascending, const MessagesCollector::Options& options) {
    constexpr int mostBatches = 2'000;
    std::int64_t bound = ascending ? -1 : 1'000'000;
    for (int batches = 0; batches < mostBatches; ++batches) {
        const MessagesCollector::Batch batch = ascending
                                                   ? collector.collect(bound, options)
                                                   : collector.collectBackfill(bound, options);
        if (ascending) {
            const boost::json::value json = boost::json::value_from(batch.records);
            ASSERT_TRUE(isValidUTF8(boost::json::serialize(json)));
        }
        if (!batch.hasMore) {
            return;
        }
        bound = ascending ? batch.highWatermark : batch.lowWatermark;
    }
    FAIL() << "The walk does not end.";
}

/// Reads the file like a scan.
void readAll(const std::filesystem::path& path, Tally& tally) {
    try {
        MessagesCollector collector(std::make_shared<SQLiteDatabase>(path.string()));
        MessagesCollector::Options options;
        options.knownHandleHints = std::make_shared<const MessagesCollector::HintSet>(
            MessagesCollector::HintSet{"4155550134", "ann@example.com"});
        options.batchLimit = 12;
        static_cast<void>(collector.countMessages(Date(Seconds(1'700'000'000))));
        walk(collector, false, options);
        options.scope = ThreadScope::AllThreads;
        walk(collector, true, options);
        ++tally.read;
    } catch (const SQLiteError&) {
        ++tally.refused;
    } catch (const MessagesCollector::Error&) {
        ++tally.refused;
    }
    // Other exceptions fail the test. Which damage SQLite detects depends on the former content of
    // its buffers, so the counts vary slightly between runs.
}

class CorruptDatabaseTest : public testing::Test {
protected:
    void SetUp() override {
        makeSample(path_);
        sample_ = content(path_);
        Tally tally;
        readAll(path_, tally);
        ASSERT_EQ(tally.read, 1);
    }

    /// Reads the sample with one byte changed at a time. The stride limits the run time.
    Tally readWithBytesFlipped(std::size_t stride, char flip) {
        Tally tally;
        std::fstream file(path_, std::ios::binary | std::ios::in | std::ios::out);
        const auto put = [&file](std::size_t position, int byte) {
            file.seekp(static_cast<std::streamoff>(position));
            file.put(static_cast<char>(byte));
            file.flush();
        };
        for (std::size_t i = 0; i < sample_.size() && !HasFailure(); i += stride) {
            SCOPED_TRACE("byte " + std::to_string(i));
            put(i, sample_[i] ^ flip);
            readAll(path_, tally);
            put(i, sample_[i]);
        }
        return tally;
    }

    TemporaryDirectory directory_;
    std::filesystem::path path_ = directory_ / "chat.db";
    std::string sample_;
};

} // namespace

TEST_F(CorruptDatabaseTest, AFileWithAnInvertedByteIsReadOrRefused) {
    const Tally tally = readWithBytesFlipped(2, '\xFF');
    std::cout << tally << '\n';
    EXPECT_EQ(tally.total(), sample_.size() / 2);
    EXPECT_GT(tally.refused, 0);
    EXPECT_GT(tally.read, 0);
}

TEST_F(CorruptDatabaseTest, AFileWithAWrongBitIsReadOrRefused) {
    for (const char flip : {'\x01', '\x02', '\x10', '\x80'}) {
        const Tally tally = readWithBytesFlipped(17, flip);
        std::cout << tally << '\n';
        EXPECT_GT(tally.refused, 0);
        EXPECT_GT(tally.read, 0);
    }
}

TEST_F(CorruptDatabaseTest, ATruncatedFileIsReadOrRefused) {
    Tally tally;
    for (std::size_t length = 0; length < sample_.size(); length += 61) {
        write(path_, std::string_view(sample_).substr(0, length));
        readAll(path_, tally);
    }
    std::cout << tally << '\n';
    EXPECT_GT(tally.refused, 0);
}

TEST_F(CorruptDatabaseTest, PagesOfGarbageAreReadOrRefused) {
    constexpr std::size_t pageSize = 512;
    std::mt19937 random(1);
    Tally tally;
    for (std::size_t page = 0; page < sample_.size() / pageSize; ++page) {
        for (int variant = 0; variant < 4; ++variant) {
            std::string damaged = sample_;
            const auto begin = damaged.begin() + static_cast<std::ptrdiff_t>(page * pageSize);
            std::generate_n(begin + (variant == 0 ? 0 : 8), pageSize - 8, [&] {
                return variant == 1 ? '\0' : static_cast<char>(random());
            });
            write(path_, damaged);
            readAll(path_, tally);
        }
    }
    std::cout << tally << '\n';
    EXPECT_GT(tally.refused, 0);
}

TEST_F(CorruptDatabaseTest, SwappedPagesAreReadOrRefused) {
    constexpr std::size_t pageSize = 512;
    const std::size_t pages = sample_.size() / pageSize;
    Tally tally;
    for (std::size_t from = 1; from < pages; ++from) {
        for (std::size_t to = 1; to < pages; to += 3) {
            std::string damaged = sample_;
            damaged.replace(to * pageSize, pageSize, sample_, from * pageSize, pageSize);
            write(path_, damaged);
            readAll(path_, tally);
        }
    }
    std::cout << tally << '\n';
    EXPECT_GT(tally.refused, 0);
}

} // namespace tavrin
