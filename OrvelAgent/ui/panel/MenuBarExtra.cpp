// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/MenuBarExtra.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/base/Logger.h"
#include "OrvelAgent/ui/panel/MenuBarContentView.h"
#include "OrvelAgent/ui/panel/PanelPlacement.h"
#include "OrvelAgent/ui/panel/StatusIconLabel.h"
#include "platform/InstanceRegistry.h"
#include "platform/Tray.h"

#include <QCursor>
#include <QEvent>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMenu>
#include <QScreen>
#include <QShortcut>
#include <QWindowStateChangeEvent>

namespace orvel {

namespace {

/// A click on the icon takes the focus from the panel first. A click that arrives later than this
/// is a new one.
constexpr tavrin::Seconds clickAfterFocusLoss{0.5};

} // namespace

MenuBarExtra::MenuBarExtra(AppModel& model, const Ports& ports) : model_(model), ports_(ports) {
    connect(&model_, &AppModel::changed, this, &MenuBarExtra::updateIcon);
    connect(&model_, &AppModel::attentionFlashChanged, this, &MenuBarExtra::updateIcon);
    connect(qGuiApp, &QCoreApplication::aboutToQuit, this, [this] { isQuitting_ = true; });
    activations_ = ports_.instanceRegistry.onActivation([this] { showPanel(); });
    trayChanges_ = ports_.tray.onChange([this] { trayChanged(); });
    trayChanged();
    if (!icon_) {
        // Use the time until the desktop reports whether it has a tray.
        QMetaObject::invokeMethod(this, &MenuBarExtra::prepareMenu, Qt::QueuedConnection);
        waitForTray();
    }
}

MenuBarExtra::~MenuBarExtra() {
    isQuitting_ = true;
    delete panel_;
}

void MenuBarExtra::trayChanged() {
    const bool hasTray = ports_.tray.isAvailable();
    if (hasTray == (icon_ != nullptr)) {
        return;
    }
    if (hasTray) {
        trayTimer_.reset();
        makeIcon();
        if (panel_ && !isUsed_) {
            panel_->close();
        }
        return;
    }
    // A later tray needs a new icon: Qt chooses the tray protocol when the icon is created.
    icon_.reset();
    menu_.reset();
    shownStatus_.reset();
    waitForTray();
}

void MenuBarExtra::waitForTray() {
    trayTimer_ = ports_.clock.schedule(trayTimeout, [this] { trayTimedOut(); });
}

void MenuBarExtra::trayTimedOut() {
    trayTimer_.reset();
    Logger(ports_.logStore, "lifecycle")
        .error("this desktop has no tray for the icon, so the panel opens as a window");
    closePanel();
    const bool isNew = !panel_;
    showPanel();
    isUsed_ = isUsed_ && !isNew;
}

void MenuBarExtra::prepareMenu() {
    if (menu_) {
        return;
    }
    menu_ = std::make_unique<QMenu>();
    menu_->setObjectName(QStringLiteral("tray-menu"));
    menu_->setAccessibleName(QString::fromStdString(model_.configuration().displayName()));
    // The menu exists as long as the icon, so it receives every change of the desktop's palette.
    menu_->installEventFilter(this);
    connect(
        menu_->addAction(
            tr("Open %1").arg(QString::fromStdString(model_.configuration().displayName()))),
        &QAction::triggered,
        this,
        [this] { showPanel(); });
    connect(
        menu_->addAction(tr("Settings…")),
        &QAction::triggered,
        this,
        &MenuBarExtra::settingsRequested);
    menu_->addSeparator();
    connect(menu_->addAction(tr("Quit")), &QAction::triggered, this, &MenuBarExtra::quitRequested);
}

void MenuBarExtra::makeIcon() {
    prepareMenu();
    icon_ = std::make_unique<QSystemTrayIcon>();
    if (!ports_.tray.isMenuBar()) {
        icon_->setContextMenu(menu_.get());
    }
    connect(icon_.get(), &QSystemTrayIcon::activated, this, &MenuBarExtra::activated);
    updateIcon();
    icon_->show();
    updateIconTitle();
}

const QIcon& MenuBarExtra::drawnIcon(StatusIcon status) {
    QIcon& drawn = drawnIcons_[status];
    if (drawn.isNull()) {
        drawn = ports_.tray.isMenuBar() ? StatusIconLabel::templateIcon(status)
                                        : StatusIconLabel::icon(status);
    }
    return drawn;
}

void MenuBarExtra::updateIcon() {
    if (!icon_) {
        return;
    }
    const StatusIcon status = model_.statusIcon();
    if (shownStatus_ != status) {
        shownStatus_ = status;
        icon_->setIcon(drawnIcon(status));
    }
    const QString label = QString::fromStdString(model_.statusAccessibilityLabel());
    if (icon_->toolTip() != label) {
        icon_->setToolTip(label);
        updateIconTitle();
    }
}

void MenuBarExtra::updateIconTitle() {
    ports_.tray.setTitle(icon_->toolTip().toStdString());
}

void MenuBarExtra::activated(QSystemTrayIcon::ActivationReason reason) {
    if (reason == QSystemTrayIcon::Context && icon_->contextMenu() == nullptr) {
        closePanel();
        menu_->popup(QCursor::pos());
    }
    if (reason != QSystemTrayIcon::Trigger) {
        return;
    }
    const tavrin::Seconds now = ports_.clock.uptime();
    const bool wasOpen = panel_ || (focusLostAt_ && now - *focusLostAt_ < clickAfterFocusLoss);
    focusLostAt_.reset();
    if (wasOpen) {
        if (panel_) {
            panel_->close();
        }
    } else {
        showPanel(QCursor::pos());
    }
}

void MenuBarExtra::showPanel(std::optional<QPoint> click) {
    if (!panel_) {
        openPanel(click);
    }
    isUsed_ = true;
    panel_->setWindowState(panel_->windowState() & ~Qt::WindowMinimized);
    panel_->show();
    model_.activate();
    panel_->raise();
    panel_->activateWindow();
}

void MenuBarExtra::openPanel(std::optional<QPoint> click) {
    click_ = click;
    auto* const content = new MenuBarContentView(model_);
    panel_ = content;
    panel_->setAttribute(Qt::WA_DeleteOnClose);
    // The panel opens before the application becomes active.
    panel_->setAttribute(Qt::WA_MacAlwaysShowToolWindow);
    panel_->setObjectName(QStringLiteral("menu-bar-panel"));
    panel_->setWindowTitle(QString::fromStdString(model_.configuration().displayName()));
    isOrdinaryWindow_ = !icon_;
    if (!isOrdinaryWindow_) {
        panel_->setWindowFlags(Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    }
    // The height of the icon's screen limits the panel's height.
    const auto icon = iconRect(icon_ ? icon_->geometry() : QRect(), click);
    if (QScreen* screen = icon ? QGuiApplication::screenAt(icon->center()) : nullptr) {
        panel_->setScreen(screen);
    }
    panel_->installEventFilter(this);
    for (QWidget* child : panel_->findChildren<QWidget*>()) {
        child->installEventFilter(this);
    }
    for (const QKeySequence& keys :
         {QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W)}) {
        connect(new QShortcut(keys, panel_), &QShortcut::activated, panel_, &QWidget::close);
    }
    connect(
        content,
        &MenuBarContentView::versionHistoryRequested,
        this,
        &MenuBarExtra::versionHistoryRequested);
    connect(
        content, &MenuBarContentView::settingsRequested, this, &MenuBarExtra::settingsRequested);
    connect(content, &MenuBarContentView::quitRequested, this, &MenuBarExtra::quitRequested);
}

void MenuBarExtra::closePanel() {
    if (panel_ && !isOrdinaryWindow_) {
        panel_->close();
    }
}

void MenuBarExtra::positionPanel() {
    panel_->move(panelPosition(
        iconRect(icon_ ? icon_->geometry() : QRect(), click_),
        panel_->screen()->availableGeometry(),
        panel_->frameSize()));
}

bool MenuBarExtra::mustStayReachable() const {
    // Without an icon, the user could not open a closed panel again.
    return !icon_ && !isQuitting_;
}

void MenuBarExtra::keepReachable() {
    if (mustStayReachable() && !trayTimer_ && !panel_) {
        openPanel(std::nullopt);
        isUsed_ = false;
        panel_->showMinimized();
    }
}

bool MenuBarExtra::eventFilter(QObject* watched, QEvent* event) {
    if (watched == menu_.get()) {
        if (event->type() == QEvent::PaletteChange) {
            drawnIcons_.clear();
            shownStatus_.reset();
            updateIcon();
        }
        return false;
    }
    if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::KeyPress) {
        isUsed_ = true;
    }
    if (watched != panel_) {
        return false;
    }
    switch (event->type()) {
    case QEvent::Show:
    case QEvent::Resize:
        if (!isOrdinaryWindow_) {
            positionPanel();
        }
        break;
    case QEvent::WindowDeactivate:
        if (!isOrdinaryWindow_) {
            focusLostAt_ = ports_.clock.uptime();
            closePanel();
        }
        break;
    case QEvent::WindowStateChange:
        if (static_cast<QWindowStateChangeEvent*>(event)->oldState() & Qt::WindowMinimized &&
            !panel_->isMinimized()) {
            static_cast<void>(model_.refreshPermissions());
        }
        break;
    case QEvent::Close:
        if (isOrdinaryWindow_ && mustStayReachable()) {
            event->ignore();
            isUsed_ = false;
            panel_->showMinimized();
            return true;
        }
        panel_.clear();
        QMetaObject::invokeMethod(this, &MenuBarExtra::keepReachable, Qt::QueuedConnection);
        break;
    default:
        break;
    }
    return false;
}

} // namespace orvel
