// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/TextLabel.h"

#include <QEvent>
#include <QHelpEvent>
#include <QPainter>
#include <QStyle>
#include <QTextLayout>
#include <QToolTip>

#include <algorithm>
#include <cmath>

namespace orvel {

namespace {

// In average characters.
constexpr int preferredLineLength = 60;
constexpr int minimumLineLength = 8;

/// Breaks the text into lines of that width and returns their total height.
int layOut(QTextLayout& layout, int width) {
    layout.beginLayout();
    double height = 0;
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition(QPointF(0, height));
        height += std::ceil(line.height());
    }
    layout.endLayout();
    return int(height);
}

QTextOption wrapping(Qt::LayoutDirection direction) {
    // Align with the window's direction. The text keeps its own direction.
    QTextOption option(QStyle::visualAlignment(direction, Qt::AlignLeft));
    option.setTextDirection(Qt::LayoutDirectionAuto);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    return option;
}

/// Qt guesses the format of a tool tip. Markup in a text from outside would be rendered: it could
/// look like a message of the agent, and pictures in it would be read from any file.
QString plainToolTip(const QString& text) {
    return QStringLiteral("<p style=\"white-space: pre-wrap\">%1</p>").arg(text.toHtmlEscaped());
}

/// QTextLayout does not break lines at '\n'.
QString withLineSeparators(QString text) {
    return text.replace(u'\n', QChar::LineSeparator);
}

} // namespace

TextLabel::TextLabel(Theme::TextStyle style, Theme::Role role, Overflow overflow, QWidget* parent)
    : QLabel(parent), style_(style), role_(role), overflow_(overflow) {
    setTextFormat(Qt::PlainText);
    setFont(Theme::font(style_));
    const bool wraps = overflow == Overflow::Wrap;
    setSizePolicy(QSizePolicy::Preferred, wraps ? QSizePolicy::Minimum : QSizePolicy::Fixed);
    // `paintEvent` ignores this, but layouts need it to use `heightForWidth`.
    setWordWrap(wraps);
}

bool TextLabel::isElided() const {
    return overflow_ == Overflow::Elide && textWidth() > width();
}

int TextLabel::textWidth() const {
    return fontMetrics().horizontalAdvance(text()) + 1;
}

QSize TextLabel::sizeHint() const {
    if (overflow_ == Overflow::Elide) {
        return {textWidth(), fontMetrics().height()};
    }
    const int width = std::min(textWidth(), fontMetrics().averageCharWidth() * preferredLineLength);
    return {width, heightForWidth(width)};
}

QSize TextLabel::minimumSizeHint() const {
    const int width = std::min(textWidth(), fontMetrics().averageCharWidth() * minimumLineLength);
    return {width, fontMetrics().height()};
}

int TextLabel::heightForWidth(int width) const {
    if (overflow_ == Overflow::Elide) {
        return -1;
    }
    QTextLayout layout(withLineSeparators(text()), font());
    layout.setTextOption(wrapping(layoutDirection()));
    return layOut(layout, width);
}

bool TextLabel::event(QEvent* event) {
    if (event->type() == QEvent::ToolTip && isElided()) {
        QToolTip::showText(
            static_cast<QHelpEvent*>(event)->globalPos(), plainToolTip(text()), this);
        return true;
    }
    return QLabel::event(event);
}

void TextLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(Theme::color(role_, palette()));
    if (overflow_ == Overflow::Elide) {
        const QString shown = fontMetrics().elidedText(text(), Qt::ElideRight, width());
        const auto alignment = QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft);
        painter.setLayoutDirection(text().isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
        painter.drawText(rect(), int(alignment | Qt::AlignAbsolute | Qt::AlignVCenter), shown);
        return;
    }
    QTextLayout layout(withLineSeparators(text()), font());
    layout.setTextOption(wrapping(layoutDirection()));
    layOut(layout, width());
    layout.draw(&painter, QPointF());
}

void TextLabel::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ApplicationFontChange) {
        setFont(Theme::font(style_));
    }
    QLabel::changeEvent(event);
}

} // namespace orvel
