// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/log/LogReader.h"

#include <QObject>
#include <QString>

#include <cstdint>
#include <deque>

namespace orvel {

/// Lists the reader's entries as single lines, newest first, optionally only the problems.
///
/// Main thread. Borrows the reader, which must outlive it.
class LogListModel final : public QObject {
    Q_OBJECT

public:
    struct Row {
        /// Identifies the entry. Later entries have larger numbers. The filter does not change
        /// them.
        std::uint64_t number = 0;
        QString time;
        QString category;
        QString message;
        /// Whether the entry's level is error or fault.
        bool isProblem = false;
    };

    explicit LogListModel(const LogReader& reader, QObject* parent = nullptr);

    /// Emits `reset` if the value changes.
    void setProblemsOnly(bool isProblemsOnly);

    [[nodiscard]] int rowCount() const { return static_cast<int>(rows_.size()); }
    [[nodiscard]] const Row& row(int index) const { return rows_[static_cast<std::size_t>(index)]; }

    /// The row of the entry with that number. If it is not listed, the row of the next older entry,
    /// or `rowCount()` if there is none.
    [[nodiscard]] int rowAt(std::uint64_t number) const;

Q_SIGNALS:
    void inserted(int first, int last);
    void removed(int first, int last);
    void reset();

private:
    void update(int inserted, int dropped);
    /// Rows for the newest `entryCount` entries.
    [[nodiscard]] std::deque<Row> rowsOf(std::size_t entryCount) const;

    const LogReader& reader_;
    bool isProblemsOnly_ = false;
    /// The number of the reader's newest entry. 0 before the first.
    std::uint64_t newest_ = 0;
    std::deque<Row> rows_;
};

} // namespace orvel
