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

/// In average characters.
static constexpr int minimumLineLength = 8;

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
    // Do not compare with the document: it converts spaces and line ends.
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
    return {fontMetrics().averageCharWidth() * minimumLineLength, fontMetrics().height()};
}

int SelectableText::heightForWidth(int width) const {
    const std::unique_ptr<QTextDocument> copy(document()->clone());
    copy->setTextWidth(width);
    return int(std::ceil(copy->size().height()));
}

void SelectableText::changeEvent(QEvent* event) {
    QTextEdit::changeEvent(event);
    // This does not recurse: Qt sends no event for an unchanged font or palette.
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange ||
        event->type() == QEvent::LayoutDirectionChange) {
        updateStyle();
    }
}

void SelectableText::wheelEvent(QWheelEvent* event) {
    // The surrounding scroll area handles it.
    event->ignore();
}

void SelectableText::updateStyle() {
    setFont(Theme::font(style_));
    // Align with the window's direction. The text keeps its own direction.
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
