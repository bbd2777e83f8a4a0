// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/RandomChanges.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <array>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvel::test {

class RandomChanges::Connection final {
public:
    explicit Connection(const std::filesystem::path& file) {
        if (sqlite3_open(file.c_str(), &handle_) != SQLITE_OK) {
            sqlite3_close(handle_);
            throw std::runtime_error("cannot open " + file.string());
        }
    }
    ~Connection() { sqlite3_close(handle_); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void execute(const std::string& sql) {
        if (!tryToExecute(sql)) {
            throw std::runtime_error(sql + ": the database is in use");
        }
    }

    /// Returns false if a reader prevents it.
    bool tryToExecute(const std::string& sql) {
        const int code = sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr);
        if (code == SQLITE_OK) {
            return true;
        }
        const int kind = code & 0xFF;
        if (kind == SQLITE_BUSY || kind == SQLITE_LOCKED) {
            return false;
        }
        throw std::runtime_error(sql + ": " + sqlite3_errmsg(handle_));
    }

    [[nodiscard]] bool isInTransaction() const { return sqlite3_get_autocommit(handle_) == 0; }

private:
    sqlite3* handle_ = nullptr;
};

RandomChanges::RandomChanges(
    std::filesystem::path file, unsigned seed, WritingProcess::Committed& committed)
    : file_(std::move(file)), random_(seed), committed_(committed) {
    open();
    connection_->execute(
        "CREATE TABLE entry (id INTEGER PRIMARY KEY, version INTEGER NOT NULL, text TEXT);"
        "CREATE INDEX entry_text ON entry (text);"
        "CREATE TABLE total (number INTEGER, rows INTEGER, versions INTEGER);"
        "INSERT INTO total VALUES (0, 0, 0)");
    begin();
    insert(below(8) == 0 ? 3000 : 20 + below(400));
    commit();
}

RandomChanges::~RandomChanges() = default;

void RandomChanges::step(std::int64_t) {
    if (connection_->isInTransaction()) {
        continueTransaction();
        return;
    }
    const int choice = below(100);
    if (choice < 60) {
        begin();
    } else if (choice < 82) {
        static constexpr std::array kinds{"PASSIVE", "FULL", "RESTART", "TRUNCATE"};
        // A reader may prevent it.
        connection_->tryToExecute(
            fmt::format("PRAGMA wal_checkpoint({})", kinds.at(static_cast<std::size_t>(below(4)))));
    } else if (choice < 86) {
        connection_->tryToExecute("VACUUM");
    } else if (choice < 93) {
        reader_ == nullptr ? openReader() : reader_.reset();
    } else if (choice < 97) {
        changeJournalMode();
    } else {
        // The last connection to close checkpoints and removes the log.
        reader_.reset();
        connection_.reset();
        open();
    }
}

int RandomChanges::below(int limit) {
    return static_cast<int>(random_() % static_cast<unsigned>(limit));
}

void RandomChanges::open() {
    connection_ = std::make_unique<Connection>(file_);
    // The small cache makes SQLite write pages before the commit.
    connection_->execute(fmt::format(
        "PRAGMA synchronous = OFF; PRAGMA wal_autocheckpoint = {}; PRAGMA cache_size = {}",
        below(3) == 0 ? 20 : 0,
        below(2) == 0 ? 5 : 2000));
    if (!isWithoutLog_) {
        connection_->execute("PRAGMA journal_mode = WAL");
    }
}

void RandomChanges::openReader() {
    if (isWithoutLog_) {
        // It would prevent every commit.
        return;
    }
    reader_ = std::make_unique<Connection>(file_);
    reader_->execute("BEGIN; SELECT COUNT(*) FROM entry");
}

void RandomChanges::changeJournalMode() {
    reader_.reset();
    static constexpr std::array modes{"DELETE", "TRUNCATE", "PERSIST"};
    connection_->execute(fmt::format(
        "PRAGMA journal_mode = {}",
        isWithoutLog_ ? "WAL" : modes.at(static_cast<std::size_t>(below(3)))));
    isWithoutLog_ = !isWithoutLog_;
    transactionsWithoutLog_ = 0;
}

void RandomChanges::begin() {
    // Not long, because a copy waits until the file has not changed for a while.
    if (isWithoutLog_ && ++transactionsWithoutLog_ > 3) {
        changeJournalMode();
    }
    connection_->execute("BEGIN IMMEDIATE");
}

void RandomChanges::continueTransaction() {
    const int choice = below(100);
    if (choice < 25) {
        insert(below(10) == 0 ? 500 : 1 + below(20));
    } else if (choice < 45) {
        connection_->execute(fmt::format(
            "UPDATE entry SET version = version + 1, text = hex(randomblob({})) "
            "WHERE id % {} = 0",
            10 + below(400),
            2 + below(50)));
    } else if (choice < 60) {
        connection_->execute(fmt::format("DELETE FROM entry WHERE id % {} = 1", 3 + below(50)));
    } else if (choice < 90) {
        commit();
    } else {
        connection_->execute("ROLLBACK");
    }
}

void RandomChanges::insert(int rows) {
    connection_->execute(fmt::format(
        "INSERT INTO entry (version, text) "
        "WITH RECURSIVE count (n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM count LIMIT {}) "
        "SELECT n % 7, hex(randomblob({})) FROM count",
        rows,
        10 + below(200)));
}

void RandomChanges::commit() {
    const std::int64_t number = committed_ + 1;
    connection_->execute(fmt::format(
        "UPDATE total SET number = {}, rows = (SELECT COUNT(*) FROM entry), "
        "versions = (SELECT COALESCE(SUM(version), 0) FROM entry)",
        number));
    connection_->execute("COMMIT");
    committed_ = number;
}

} // namespace orvel::test
