// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/log/LogReader.h"

#include <QAbstractListModel>
#include <QString>

#include <cstdint>
#include <deque>

namespace orvel {

/// Lists the reader's entries as single lines, newest first, optionally only the problems.
///
/// Main thread. Borrows the reader, which must outlive it.
class LogListModel final : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        /// A quint64 that identifies the entry. Later entries have larger numbers. The filter does
        /// not change them.
        NumberRole = Qt::UserRole,
        TimeRole,
        CategoryRole,
        MessageRole,
        /// Whether the entry's level is error or fault.
        ProblemRole,
    };

    explicit LogListModel(const LogReader& reader, QObject* parent = nullptr);

    /// Resets the model if the value changes.
    void setProblemsOnly(bool isProblemsOnly);

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    /// `Qt::DisplayRole` gives the whole line, for screen readers.
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;

    /// The row of the entry with that number. If it is not listed, the row of the next older entry,
    /// or `rowCount()` if there is none.
    [[nodiscard]] int rowAt(std::uint64_t number) const;

private:
    struct Row {
        std::uint64_t number = 0;
        QString time;
        QString category;
        QString message;
        bool isProblem = false;
    };

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
