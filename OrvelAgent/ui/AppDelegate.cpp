// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/AppDelegate.h"

#include "platform/ApplicationFocus.h"

#include <QApplication>
#include <QGuiApplication>
#include <QScreen>
#include <QWidget>
#include <QWindow>

#include <algorithm>

namespace orvel {

namespace {

bool isTitled(const QWidget& window) {
    const Qt::WindowType type = window.windowType();
    return (type == Qt::Window || type == Qt::Dialog) &&
           !window.windowFlags().testFlag(Qt::FramelessWindowHint);
}

} // namespace

AppDelegate::AppDelegate(ApplicationFocus& focus) : focus_(focus) {
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, &AppDelegate::windowBecameKey);
    connect(qGuiApp, &QGuiApplication::screenAdded, this, &AppDelegate::watch);
    // Queued, because Qt moves the windows of a removed screen only after this signal.
    connect(
        qGuiApp,
        &QGuiApplication::screenRemoved,
        this,
        &AppDelegate::rescueAllWindows,
        Qt::QueuedConnection);
    for (QScreen* screen : QGuiApplication::screens()) {
        watch(screen);
    }
}

void AppDelegate::watch(QScreen* screen) {
    connect(screen, &QScreen::availableGeometryChanged, this, &AppDelegate::rescueAllWindows);
}

void AppDelegate::windowBecameKey(QWindow* window) {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->windowHandle() != window || window == nullptr || !isTitled(*widget)) {
            continue;
        }
        rescueOffscreen(*widget);
        focus_.activate();
        widget->raise();
    }
}

void AppDelegate::rescueAllWindows() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget->isVisible() && isTitled(*widget)) {
            rescueOffscreen(*widget);
        }
    }
}

void AppDelegate::rescueOffscreen(QWidget& window) {
    const QRect frame = window.frameGeometry();
    const auto screens = QGuiApplication::screens();
    const bool isSeen = std::ranges::any_of(screens, [&](const QScreen* screen) {
        return screen->availableGeometry().intersects(frame);
    });
    const QScreen* primary = QGuiApplication::primaryScreen();
    if (isSeen || primary == nullptr) {
        return;
    }
    window.move(primary->availableGeometry().center() - QPoint(frame.width(), frame.height()) / 2);
}

} // namespace orvel
