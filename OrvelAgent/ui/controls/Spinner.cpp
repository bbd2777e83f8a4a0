// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Spinner.h"

#include "OrvelAgent/ui/controls/Symbol.h"
#include "OrvelAgent/ui/controls/Theme.h"

#include <QPainter>
#include <QPen>
#include <QTimerEvent>

#include <chrono>

namespace orvel {

namespace {

constexpr int spokes = 12;
constexpr std::chrono::milliseconds stepDuration(100);

} // namespace

Spinner::Spinner(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(tr("Scanning"));
    setToolTip(tr("Scanning"));
}

void Spinner::setStill(bool isStill) {
    isStill_ = isStill;
    updateTurning();
}

QSize Spinner::sizeHint() const {
    const int side = Theme::symbolSize(Theme::TextStyle::Body);
    return {side, side};
}

void Spinner::showEvent(QShowEvent* event) {
    window()->installEventFilter(this);
    updateTurning();
    QWidget::showEvent(event);
}

void Spinner::hideEvent(QHideEvent* event) {
    updateTurning();
    QWidget::hideEvent(event);
}

void Spinner::updateTurning() {
    if (!isVisible() || window()->isMinimized() || isStill_) {
        timer_.stop();
    } else if (!timer_.isActive()) {
        timer_.start(int(stepDuration.count()), this);
    }
    update();
}

bool Spinner::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::WindowStateChange) {
        updateTurning();
    }
    return QWidget::eventFilter(watched, event);
}

void Spinner::timerEvent(QTimerEvent* event) {
    if (event->timerId() != timer_.timerId()) {
        QWidget::timerEvent(event);
        return;
    }
    step_ = (step_ + 1) % spokes;
    update();
}

void Spinner::paintEvent(QPaintEvent* /*event*/) {
    const QColor color = Theme::color(Theme::Role::Secondary, palette());
    QPainter painter(this);
    if (!isTurning()) {
        painter.drawPixmap(
            0,
            0,
            symbolPixmap(Symbol::ArrowTriangle2CirclePath, width(), color, devicePixelRatioF()));
        return;
    }
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(QRectF(rect()).center());
    const double radius = width() / 2.0;
    for (int spoke = 0; spoke < spokes; ++spoke) {
        // The brightest spoke rotates, followed by a fading tail.
        const int age = (step_ - spoke + spokes) % spokes;
        QColor faded = color;
        faded.setAlphaF(1 - 0.8F * float(age) / (spokes - 1));
        painter.setPen(QPen(faded, radius / 5, Qt::SolidLine, Qt::RoundCap));
        painter.save();
        painter.rotate(spoke * 360.0 / spokes);
        painter.drawLine(QPointF(0, -radius * 0.5), QPointF(0, -radius * 0.85));
        painter.restore();
    }
}

} // namespace orvel
