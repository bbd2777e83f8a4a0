// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/SelectableText.h"

#include <QApplication>
#include <QEvent>
#include <QStyle>
#include <QTextDocument>
#include <QTextOption>
#include <QWheelEvent>

#include <algorithm>
#include <cmath>
#include <memory>

namespace orvel {

namespace {

/// Nothing is laid out in less.
constexpr int shortestLine = 8;

} // namespace

SelectableText::SelectableText(Theme::TextStyle style, Theme::Role role, QWidget* parent)
    : QTextEdit(parent), style_(style), role_(role) {
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setTabChangesFocus(true);
    setFrameShape(NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    viewport()->setAutoFillBackground(false);
    document()->setDocumentMargin(0);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Minimum);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    updateStyle();
}

void SelectableText::setText(const QString& text) {
    // Not with what the document makes of it, which differs in its spaces and ends of lines.
    if (text_ != text) {
        text_ = text;
        setPlainText(text);
        updateGeometry();
    }
}

QSize SelectableText::sizeHint() const {
    const int width = int(std::ceil(document()->idealWidth()));
    return {width, heightForWidth(width)};
}

QSize SelectableText::minimumSizeHint() const {
    return {fontMetrics().averageCharWidth() * shortestLine, fontMetrics().height()};
}

int SelectableText::heightForWidth(int width) const {
    const std::unique_ptr<QTextDocument> copy(document()->clone());
    copy->setTextWidth(width);
    return int(std::ceil(copy->size().height()));
}

void SelectableText::changeEvent(QEvent* event) {
    QTextEdit::changeEvent(event);
    // What this sets itself is no change, so that it ends.
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange ||
        event->type() == QEvent::LayoutDirectionChange) {
        updateStyle();
    }
}

void SelectableText::wheelEvent(QWheelEvent* event) {
    // For what this lies in.
    event->ignore();
}

void SelectableText::updateStyle() {
    setFont(Theme::font(style_));
    // On the window's side, in the text's own direction.
    QTextOption option = document()->defaultTextOption();
    option.setAlignment(QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft));
    option.setTextDirection(Qt::LayoutDirectionAuto);
    document()->setDefaultTextOption(option);
    QPalette colors = palette();
    colors.setColor(QPalette::Text, Theme::color(role_, QApplication::palette()));
    if (colors != palette()) {
        setPalette(colors);
    }
    updateGeometry();
}

} // namespace orvel
