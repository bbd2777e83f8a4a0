// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Badge.h"

#include <QApplication>
#include <QEvent>
#include <QFontMetrics>
#include <QPainter>

#include <utility>

namespace orvel {

namespace {

constexpr int horizontalPadding = 4;
constexpr int verticalPadding = 2;
constexpr qreal outline = 1;

} // namespace

Badge::Badge(QString text, Theme::Role role, Shape shape, QWidget* parent)
    : QWidget(parent), text_(std::move(text)), role_(role), shape_(shape) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(text_);
}

int Badge::widthOf(const QString& text) {
    const QFontMetrics metrics(Theme::font(Theme::TextStyle::Caption));
    return metrics.horizontalAdvance(text) + 2 * horizontalPadding;
}

QSize Badge::sizeHint() const {
    const QFontMetrics metrics(Theme::font(Theme::TextStyle::Caption));
    return {widthOf(text_), metrics.height() + 2 * verticalPadding};
}

void Badge::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ApplicationFontChange) {
        updateGeometry();
    }
}

void Badge::paintEvent(QPaintEvent*) {
    const QColor color = Theme::color(role_, palette());
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF frame = rect();
    if (shape_ == Shape::Filled) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(color);
    } else {
        frame.adjust(outline / 2, outline / 2, -outline / 2, -outline / 2);
        painter.setPen(QPen(color, outline));
    }
    painter.drawRoundedRect(frame, Theme::cornerRadius / 2.0, Theme::cornerRadius / 2.0);
    // The role's colour contrasts with the window colour, so this text is readable on the badge.
    painter.setPen(shape_ == Shape::Filled ? palette().color(QPalette::Window) : color);
    painter.setFont(Theme::font(Theme::TextStyle::Caption));
    painter.drawText(rect(), Qt::AlignCenter, text_);
}

} // namespace orvel
