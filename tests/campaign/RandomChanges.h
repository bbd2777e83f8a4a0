// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/WritingProcess.h"

#include <filesystem>
#include <memory>
#include <random>
#include <string>

struct sqlite3;

namespace orvel::test {

/// Creates a database and changes it: rows are added, changed and deleted, transactions are rolled
/// back or too large for the cache, readers keep the log in use, and checkpoints of all four kinds,
/// vacuuming, restarts of the log, and other journal modes follow each other. A transaction has
/// several steps.
///
/// Each transaction also updates the table "total" with its own number, and with the number of rows
/// of "entry" and the sum of their versions. So a reader can check that it sees whole transactions.
class RandomChanges final : public WritingProcess::Writer {
public:
    RandomChanges(std::filesystem::path file, unsigned seed, WritingProcess::Committed& committed);
    ~RandomChanges() override;

    void step(std::int64_t number) override;

private:
    class Connection;

    int below(int limit);
    void open();
    void openReader();
    void changeJournalMode();
    void begin();
    void continueTransaction();
    void insert(int rows);
    void commit();

    std::filesystem::path file_;
    std::mt19937 random_;
    WritingProcess::Committed& committed_;
    std::unique_ptr<Connection> connection_;
    std::unique_ptr<Connection> reader_;
    bool isWithoutLog_ = false;
    int transactionsWithoutLog_ = 0;
};

} // namespace orvel::test
