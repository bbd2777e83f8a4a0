// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/LogListModel.h"

#include <QDateTime>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string_view>

namespace orvel {

namespace {

/// Formats local times. Reuses the last text, because many entries share one second.
class TimeFormatter final {
public:
    const QString& operator()(tavrin::Date date) {
        const auto second = static_cast<qint64>(std::floor(date.time_since_epoch().count()));
        if (text_.isEmpty() || second != second_) {
            second_ = second;
            text_ = QDateTime::fromSecsSinceEpoch(second).toString(QStringLiteral("HH:mm:ss"));
        }
        return text_;
    }

private:
    qint64 second_ = 0;
    QString text_;
};

/// Replaces control characters and line separators by spaces, to keep one line per entry.
QString singleLine(std::string_view text) {
    QString line = QString::fromUtf8(text);
    for (QChar& character : line) {
        const QChar::Category category = character.category();
        if (category == QChar::Other_Control || category == QChar::Separator_Line ||
            category == QChar::Separator_Paragraph) {
            character = u' ';
        }
    }
    return line;
}

bool isProblem(const LogReader::Entry& entry) {
    return entry.level == LogLevel::Error || entry.level == LogLevel::Fault;
}

} // namespace

LogListModel::LogListModel(const LogReader& reader, QObject* parent)
    : QObject(parent), reader_(reader), newest_(reader.entries().size()) {
    rows_ = rowsOf(reader_.entries().size());
    connect(&reader_, &LogReader::changed, this, &LogListModel::update);
}

void LogListModel::setProblemsOnly(bool isProblemsOnly) {
    if (isProblemsOnly_ != isProblemsOnly) {
        isProblemsOnly_ = isProblemsOnly;
        rows_ = rowsOf(reader_.entries().size());
        Q_EMIT reset();
    }
}

int LogListModel::rowAt(std::uint64_t number) const {
    const auto found =
        std::ranges::lower_bound(rows_, number, std::ranges::greater(), &Row::number);
    return static_cast<int>(std::distance(rows_.begin(), found));
}

void LogListModel::update(int inserted, int dropped) {
    newest_ += static_cast<std::uint64_t>(inserted);
    if (dropped > 0) {
        const int kept = rowAt(newest_ - reader_.entries().size());
        const int last = rowCount() - 1;
        if (kept <= last) {
            rows_.resize(static_cast<std::size_t>(kept));
            Q_EMIT removed(kept, last);
        }
    }
    std::deque<Row> added = rowsOf(static_cast<std::size_t>(inserted));
    if (!added.empty()) {
        std::move(added.rbegin(), added.rend(), std::front_inserter(rows_));
        Q_EMIT this->inserted(0, static_cast<int>(added.size()) - 1);
    }
}

std::deque<LogListModel::Row> LogListModel::rowsOf(std::size_t entryCount) const {
    std::deque<Row> rows;
    TimeFormatter timeText;
    for (std::size_t index = 0; index < entryCount; ++index) {
        const LogReader::Entry& entry = reader_.entries()[index];
        if (!isProblemsOnly_ || isProblem(entry)) {
            rows.push_back(
                {newest_ - index,
                 timeText(entry.date),
                 singleLine(entry.category),
                 singleLine(entry.message),
                 isProblem(entry)});
        }
    }
    return rows;
}

} // namespace orvel
