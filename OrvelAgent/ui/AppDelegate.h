// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

class QScreen;
class QWidget;
class QWindow;

namespace orvel {

class Workspace;

/// Keeps every window with a title bar where the user can see and reach it: on a connected screen,
/// and in front when it gets the focus. Borrows the workspace.
class AppDelegate final : public QObject {
    Q_OBJECT

public:
    explicit AppDelegate(Workspace& workspace);

    /// Of all windows with a title bar.
    void rescueAllWindows();

    /// Centres a window of which no screen shows any part.
    static void rescueOffscreen(QWidget& window);

private:
    void windowBecameKey(QWindow* window);
    void watch(QScreen* screen);

    Workspace& workspace_;
};

} // namespace orvel
