// SPDX-License-Identifier: Apache-2.0
#include "core/messages/RollbackJournal.h"

#include "core/Errors.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace tavrin {
namespace {

constexpr std::uint32_t nonce = 0x12345678;

std::string bigEndian(std::uint32_t value) {
    std::string bytes;
    for (const unsigned shift : {24U, 16U, 8U, 0U}) {
        bytes += static_cast<char>(value >> shift & 0xFFU);
    }
    return bytes;
}

/// A page as it was before the change. Pages count from 1.
struct Page {
    std::uint32_t number;
    std::string content;
};

class RollbackJournalTest : public testing::Test {
protected:
    /// Some content of a page. Its last 200 bytes begin with that letter.
    [[nodiscard]] std::string page(char letter) const { return std::string(pageSize_, letter); }

    /// Writes a main file with the pages "a", "b" and "c".
    void writeCopy() const { write(copy_, page('a') + page('b') + page('c')); }

    /// A header, filled up to a sector, and pages.
    [[nodiscard]] std::string group(const std::vector<Page>& pages) const {
        return group(pages, static_cast<std::uint32_t>(pages.size()));
    }

    [[nodiscard]] std::string
    group(const std::vector<Page>& pages, std::uint32_t announcedPages) const {
        std::string bytes("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", 8);
        bytes += bigEndian(announcedPages) + bigEndian(nonce) + bigEndian(3) +
                 bigEndian(sectorSize_) + bigEndian(static_cast<std::uint32_t>(pageSize_));
        bytes.resize(std::max<std::size_t>(sectorSize_, bytes.size()), '\0');
        for (const Page& former : pages) {
            std::uint32_t checksum = nonce;
            for (std::size_t at = pageSize_ - 200; at > 0 && at < pageSize_; at -= 200) {
                checksum += static_cast<unsigned char>(former.content[at]);
            }
            bytes += bigEndian(former.number) + former.content + bigEndian(checksum);
        }
        return bytes;
    }

    [[nodiscard]] bool hasChanged(const std::string& journal) const {
        write(journal_, journal);
        return RollbackJournal::hasChanged(copy_, journal_);
    }

    static void write(const std::filesystem::path& path, const std::string& bytes) {
        std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    }

    orvel::test::TemporaryDirectory folder_;
    std::filesystem::path copy_ = folder_ / "chat.db";
    std::filesystem::path journal_ = folder_ / "chat.db-journal";
    std::size_t pageSize_ = 1024;
    std::uint32_t sectorSize_ = 512;
};

TEST_F(RollbackJournalTest, APageThatDiffersIsAChange) {
    writeCopy();
    EXPECT_TRUE(hasChanged(group({{2, page('x')}})));
    EXPECT_FALSE(hasChanged(group({{2, page('b')}})));
    EXPECT_TRUE(hasChanged(group({{1, page('a')}, {3, page('x')}})));
    EXPECT_FALSE(hasChanged(group({{1, page('a')}, {3, page('c')}})));
    EXPECT_TRUE(hasChanged(group({{4, page('d')}}))) << "the file has become shorter";
}

TEST_F(RollbackJournalTest, OnlyTheAnnouncedPagesCount) {
    writeCopy();
    EXPECT_FALSE(hasChanged(group({{1, page('a')}, {2, page('x')}}, 1)));
    EXPECT_TRUE(hasChanged(group({{1, page('a')}, {2, page('x')}}, 0xffffffff)));
}

TEST_F(RollbackJournalTest, EveryGroupOfPagesCounts) {
    writeCopy();
    std::string journal = group({{1, page('a')}});
    // The next header begins with a sector.
    journal.resize((journal.size() + sectorSize_ - 1) / sectorSize_ * sectorSize_, '\0');
    EXPECT_FALSE(hasChanged(journal + group({{2, page('b')}})));
    EXPECT_TRUE(hasChanged(journal + group({{2, page('x')}})));
}

TEST_F(RollbackJournalTest, AllPossibleSizesAreRead) {
    for (const std::size_t size : {512U, 4096U, 65'536U}) {
        for (const std::uint32_t sector : {32U, 512U, 65'536U}) {
            pageSize_ = size;
            sectorSize_ = sector;
            writeCopy();
            EXPECT_TRUE(hasChanged(group({{2, page('x')}}))) << size << " " << sector;
        }
    }
}

TEST_F(RollbackJournalTest, AJournalOfImpossibleSizesIsIgnored) {
    writeCopy();
    for (const std::size_t size : {256U, 600U, 131'072U}) {
        pageSize_ = size;
        EXPECT_FALSE(hasChanged(group({{2, page('x')}}))) << size;
    }
    pageSize_ = 1024;
    for (const std::uint32_t sector : {0U, 16U, 500U, 131'072U}) {
        sectorSize_ = sector;
        EXPECT_FALSE(hasChanged(group({{2, page('x')}}))) << sector;
    }
}

TEST_F(RollbackJournalTest, AFinishedJournalIsIgnored) {
    writeCopy();
    std::string journal = group({{2, page('x')}});
    journal[0] = '\0';
    EXPECT_FALSE(hasChanged(journal));
    journal.replace(0, 28, 28, '\0');
    EXPECT_FALSE(hasChanged(journal));
    EXPECT_FALSE(hasChanged(""));
}

TEST_F(RollbackJournalTest, APageThatWasNotWrittenCompletelyIsIgnored) {
    writeCopy();
    const std::string journal = group({{2, page('x')}});
    EXPECT_FALSE(hasChanged(journal.substr(0, journal.size() - 1)));
    EXPECT_FALSE(hasChanged(journal.substr(0, journal.size() - 4) + bigEndian(nonce)));
    EXPECT_FALSE(hasChanged(group({{0, page('x')}})));
}

TEST_F(RollbackJournalTest, AMissingJournalIsNoChangeAndAnUnreadableOneIsAnError) {
    writeCopy();
    EXPECT_FALSE(RollbackJournal::hasChanged(copy_, journal_));
    std::filesystem::create_directory(journal_);
    EXPECT_THROW(static_cast<void>(RollbackJournal::hasChanged(copy_, journal_)), PlatformError);
}

} // namespace
} // namespace tavrin
