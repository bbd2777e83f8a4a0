// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/StatusIcon.h"
#include "platform/Clock.h"
#include "platform/Subscription.h"

#include <QIcon>
#include <QObject>
#include <QPoint>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QWidget>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

class QMenu;
class QWidget;

namespace orvel {

class AppModel;
class InstanceRegistry;
class LogStore;
class Tray;

/// The agent's one permanent surface: its icon in the tray, and the panel that the icon opens.
///
/// The icon comes as soon as there is a tray, and goes with it. Without one, the panel is an
/// ordinary window, which opens after the grace and is only minimised when the user closes it. It
/// gives way to the icon of a later tray, unless the user has turned to it. The panel exists only
/// while it is open, so a closed one costs nothing. Borrows the model and the ports.
class MenuBarExtra final : public QObject {
    Q_OBJECT

public:
    /// How long a tray may take to appear after the start, or after the end of another.
    static constexpr tavrin::Seconds trayGrace{20};

    struct Ports {
        Tray& tray;
        InstanceRegistry& instanceRegistry;
        Clock& clock;
        LogStore& logStore;
    };

    MenuBarExtra(AppModel& model, const Ports& ports);
    ~MenuBarExtra() override;

    /// Beside the icon that was clicked there; in the middle of the screen without a click.
    void showPanel(std::optional<QPoint> click = std::nullopt);
    /// Not the ordinary window.
    void closePanel();
    [[nodiscard]] bool isPanelOpen() const { return !panel_.isNull(); }

    /// Nothing while there is no tray.
    [[nodiscard]] QSystemTrayIcon* trayIcon() { return icon_.get(); }

Q_SIGNALS:
    void versionHistoryRequested();
    void settingsRequested();
    void quitRequested();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void trayChanged();
    void waitForTray();
    void noTrayInTime();
    /// Which takes time.
    void prepareMenu();
    void makeIcon();
    /// Drawn once for each status, until the palette changes.
    const QIcon& drawnIcon(StatusIcon status);
    void activated(QSystemTrayIcon::ActivationReason reason);
    void updateIcon();
    /// For screen readers.
    void nameIcon();
    void openPanel(std::optional<QPoint> click);
    void placePanel();
    [[nodiscard]] bool mustStayReachable() const;
    void keepReachable();

    AppModel& model_;
    const Ports ports_;
    std::unique_ptr<QSystemTrayIcon> icon_;
    std::unique_ptr<QMenu> menu_;
    /// Drawn once, because the attention flash changes between two of them all the time.
    std::map<StatusIcon, QIcon> drawnIcons_;
    std::optional<StatusIcon> shownStatus_;
    /// Of the base's type: it is still compared while it is being destroyed.
    QPointer<QWidget> panel_;
    /// Of the panel that is open, and where the click was that opened it.
    bool isOrdinaryWindow_ = false;
    std::optional<QPoint> click_;
    /// The user has asked for it, or has done something in it.
    bool isWanted_ = false;
    bool isLeaving_ = false;
    /// When the panel lost the focus, which a click on the icon takes from it first.
    std::optional<tavrin::Seconds> closedByFocus_;
    std::unique_ptr<Clock::Timer> grace_;
    std::unique_ptr<Subscription> trayChanges_;
    std::unique_ptr<Subscription> activations_;
};

} // namespace orvel
