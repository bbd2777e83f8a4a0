// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/LogView.h"

#include "OrvelAgent/ui/controls/Theme.h"
#include "OrvelAgent/ui/log/LogListModel.h"

#include <QEvent>
#include <QFontMetrics>
#include <QPlainTextDocumentLayout>
#include <QScopedValueRollback>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextOption>

#include <algorithm>

namespace orvel {

namespace {

/// Adds space between the lines.
class SpacedLayout final : public QPlainTextDocumentLayout {
public:
    using QPlainTextDocumentLayout::QPlainTextDocumentLayout;

    [[nodiscard]] QRectF blockBoundingRect(const QTextBlock& block) const override {
        return QPlainTextDocumentLayout::blockBoundingRect(block).adjusted(
            0, 0, 0, Theme::lineSpacing);
    }
};

QTextCharFormat formatOf(Theme::Role role, const QPalette& palette) {
    QTextCharFormat format;
    format.setForeground(Theme::colorOnBase(role, palette));
    return format;
}

} // namespace

LogView::LogView(const LogListModel& model, QWidget* parent)
    : QPlainTextEdit(parent), model_(model) {
    auto* document = new QTextDocument(this);
    document->setDocumentLayout(new SpacedLayout(document));
    document->setUndoRedoEnabled(false);
    document->setDocumentMargin(Theme::controlSpacing);
    setDocument(document);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setLineWrapMode(NoWrap);
    setFrameShape(NoFrame);
    // The columns start on the left even if the desktop or a text runs from right to left.
    setLayoutDirection(Qt::LeftToRight);

    connect(&model_, &LogListModel::inserted, this, &LogView::insertRows);
    connect(&model_, &LogListModel::removed, this, &LogView::removeRows);
    connect(&model_, &LogListModel::reset, this, &LogView::reload);
    connect(verticalScrollBar(), &QScrollBar::valueChanged, this, &LogView::rememberTopEntry);
    updateStyle();
    reload();
}

void LogView::changeEvent(QEvent* event) {
    QPlainTextEdit::changeEvent(event);
    if (event->type() == QEvent::ApplicationFontChange) {
        updateStyle();
    } else if (event->type() == QEvent::PaletteChange) {
        reload();
    }
}

void LogView::insertRows(int first, int last) {
    const QScopedValueRollback updating(isUpdating_, true);
    const bool isAppending = last + 1 == model_.rowCount();
    if (!topEntry_ && !isAppending && textCursor().hasSelection()) {
        // Keep the entry that was at the top before the insertion.
        topEntry_ = model_.row(last + 1).number;
    }
    const QTextCharFormat secondary = formatOf(Theme::Role::Secondary, palette());
    const QTextCharFormat primary = formatOf(Theme::Role::Primary, palette());
    const QTextCharFormat red = formatOf(Theme::Role::Red, palette());
    QTextCursor cursor(document());
    cursor.beginEditBlock();
    if (isAppending) {
        cursor.movePosition(QTextCursor::End);
    } else {
        cursor.setPosition(document()->findBlockByNumber(first).position());
    }
    for (int row = first; row <= last; ++row) {
        const LogListModel::Row& entry = model_.row(row);
        if (isAppending && row > 0) {
            cursor.insertBlock();
        }
        cursor.insertText(entry.time, secondary);
        cursor.insertText(u'\t' + entry.category, primary);
        cursor.insertText(u'\t' + entry.message, entry.isProblem ? red : primary);
        if (!isAppending) {
            cursor.insertBlock();
        }
    }
    cursor.endEditBlock();
    restoreTopEntry();
}

void LogView::removeRows(int first, int last) {
    const QScopedValueRollback updating(isUpdating_, true);
    QTextCursor cursor(document()->findBlockByNumber(first));
    const QTextBlock end = document()->findBlockByNumber(last + 1);
    if (end.isValid()) {
        cursor.setPosition(end.position(), QTextCursor::KeepAnchor);
    } else {
        // The last rows have no line break after them, so remove the one before.
        cursor.movePosition(QTextCursor::PreviousCharacter);
        cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
    }
    cursor.removeSelectedText();
    restoreTopEntry();
}

void LogView::reload() {
    const QScopedValueRollback updating(isUpdating_, true);
    document()->clear();
    if (model_.rowCount() > 0) {
        insertRows(0, model_.rowCount() - 1);
    }
}

void LogView::updateStyle() {
    const QFont font = Theme::font(Theme::TextStyle::Monospaced);
    setFont(font);
    const QFontMetrics metrics(font);
    const int category =
        metrics.horizontalAdvance(QStringLiteral("00:00:00")) + Theme::controlSpacing;
    const int message =
        category + Theme::controlSpacing +
        std::max(categoryWidth, metrics.horizontalAdvance(QStringLiteral("collector")));
    QTextOption option = document()->defaultTextOption();
    option.setTabs(
        {QTextOption::Tab(category, QTextOption::LeftTab),
         QTextOption::Tab(message, QTextOption::LeftTab)});
    option.setTextDirection(Qt::LeftToRight);
    document()->setDefaultTextOption(option);
}

void LogView::rememberTopEntry() {
    if (!isUpdating_) {
        const int row = verticalScrollBar()->value();
        topEntry_.reset();
        if (row > 0 && row < model_.rowCount()) {
            topEntry_ = model_.row(row).number;
        }
    }
}

void LogView::restoreTopEntry() {
    verticalScrollBar()->setValue(topEntry_ ? model_.rowAt(*topEntry_) : 0);
}

} // namespace orvel
