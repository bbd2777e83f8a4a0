// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

class QScreen;
class QWidget;
class QWindow;

namespace orvel {

class ApplicationFocus;

/// Keeps every window with a title bar where the user can see and reach it: on a connected screen,
/// and in front when it gets the focus. Borrows the application focus.
class AppDelegate final : public QObject {
    Q_OBJECT

public:
    explicit AppDelegate(ApplicationFocus& focus);

    /// Of all windows with a title bar.
    void rescueAllWindows();

    /// Centres a window of which no screen shows any part.
    static void rescueOffscreen(QWidget& window);

private:
    void windowBecameKey(QWindow* window);
    void watch(QScreen* screen);

    ApplicationFocus& focus_;
};

} // namespace orvel
