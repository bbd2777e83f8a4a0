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

/// The tray icon and the panel that it opens.
///
/// The icon exists while the desktop has a tray. Without a tray, the panel opens as an ordinary
/// window after `trayTimeout`. Closing that window only minimises it. If a tray appears later, the
/// window closes unless the user has used it. A closed panel does not exist. Borrows the model and
/// the ports.
class MenuBarExtra final : public QObject {
    Q_OBJECT

public:
    /// How long to wait for a tray after the start, or after the previous tray has gone.
    static constexpr tavrin::Seconds trayTimeout{20};

    struct Ports {
        Tray& tray;
        InstanceRegistry& instanceRegistry;
        Clock& clock;
        LogStore& logStore;
    };

    MenuBarExtra(AppModel& model, const Ports& ports);
    ~MenuBarExtra() override;

    /// Opens the panel beside the icon that was clicked at `click`. Without a click it uses the
    /// icon's reported position, or the middle of the screen.
    void showPanel(std::optional<QPoint> click = std::nullopt);
    /// Does nothing while the panel is an ordinary window.
    void closePanel();
    [[nodiscard]] bool isPanelOpen() const { return !panel_.isNull(); }

    /// Null while there is no tray.
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
    void trayTimedOut();
    void prepareMenu();
    void makeIcon();
    const QIcon& drawnIcon(StatusIcon status);
    void activated(QSystemTrayIcon::ActivationReason reason);
    void updateIcon();
    /// For screen readers.
    void updateIconTitle();
    void openPanel(std::optional<QPoint> click);
    void positionPanel();
    [[nodiscard]] bool mustStayReachable() const;
    void keepReachable();

    AppModel& model_;
    const Ports ports_;
    std::unique_ptr<QSystemTrayIcon> icon_;
    std::unique_ptr<QMenu> menu_;
    /// A cache, because the attention flash switches icons continually. A new palette clears it.
    std::map<StatusIcon, QIcon> drawnIcons_;
    std::optional<StatusIcon> shownStatus_;
    /// Not a pointer to the derived type: it is still compared while the panel is being destroyed.
    QPointer<QWidget> panel_;
    bool isOrdinaryWindow_ = false;
    /// Where the click was that opened the panel.
    std::optional<QPoint> click_;
    /// The user has requested the panel or has clicked or typed in it.
    bool isUsed_ = false;
    bool isQuitting_ = false;
    /// When the panel closed because it lost the focus.
    std::optional<tavrin::Seconds> focusLostAt_;
    std::unique_ptr<Clock::Timer> trayTimer_;
    std::unique_ptr<Subscription> trayChanges_;
    std::unique_ptr<Subscription> activations_;
};

} // namespace orvel
