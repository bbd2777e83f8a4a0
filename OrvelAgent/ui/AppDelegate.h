// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

class QScreen;
class QWidget;
class QWindow;

namespace orvel {

class ApplicationFocus;

/// Keeps every window with a title bar on a connected screen, and raises it when it gets the focus.
/// Borrows the application focus.
class AppDelegate final : public QObject {
    Q_OBJECT

public:
    explicit AppDelegate(ApplicationFocus& focus);

    void rescueAllWindows();

    /// Centres the window on the primary screen if no part of it is on any screen.
    static void rescueOffscreen(QWidget& window);

private:
    void windowBecameKey(QWindow* window);
    void watch(QScreen* screen);

    ApplicationFocus& focus_;
};

} // namespace orvel
