// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/log/LogReader.h"

#include <QAbstractListModel>
#include <QString>

#include <cstdint>
#include <deque>

namespace orvel {

/// What the activity window lists: the reader's entries as single lines, the newest first, or only
/// the problems among them.
///
/// Main thread. Borrows the reader, which must outlive it.
class LogListModel final : public QAbstractListModel {
    Q_OBJECT

public:
    enum Role {
        /// A quint64 that only ever grows: the later entry has the larger number, whatever is
        /// filtered out between two of them.
        NumberRole = Qt::UserRole,
        TimeRole,
        CategoryRole,
        MessageRole,
        /// Of the level of an error or a fault.
        ProblemRole,
    };

    explicit LogListModel(const LogReader& reader, QObject* parent = nullptr);

    /// Resets the model when that is new.
    void setProblemsOnly(bool isProblemsOnly);

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    /// The whole line for `Qt::DisplayRole`, for other programs to read.
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;

    /// The row of that entry or, when it is not listed, of the newest one before it; the number of
    /// rows when there is none.
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
    /// The rows for the newest entries of the reader.
    [[nodiscard]] std::deque<Row> rowsOf(std::size_t entryCount) const;

    const LogReader& reader_;
    bool isProblemsOnly_ = false;
    /// Of the reader's newest entry; 0 before the first.
    std::uint64_t newest_ = 0;
    std::deque<Row> rows_;
};

} // namespace orvel
