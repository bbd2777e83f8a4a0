// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/TavrinMacApp.h"

#include "OrvelAgent/ui/log/LogWindow.h"
#include "OrvelAgent/ui/settings/SettingsView.h"
#include "OrvelAgent/ui/update/VersionHistoryWindow.h"

#include <QEvent>
#include <QKeySequence>
#include <QShortcut>
#include <QWidget>

#include <utility>

namespace orvel {

TavrinMacApp::TavrinMacApp(
    Platform& platform, UpdatePresenter& updatePresenter, CollectorService::Options options)
    : platform_(platform),
      appDelegate_(*platform.applicationFocus),
      model_(platform, updatePresenter, std::move(options)),
      geometry_(*platform.userDefaults),
      scenes_(makeScenes()),
      menuBarExtra_(std::make_unique<MenuBarExtra>(
          model_,
          MenuBarExtra::Ports{
              *platform.tray, *platform.instanceRegistry, *platform.clock, *platform.logStore})) {
    // An installed bundle declares this itself. A program run from the build tree does not.
    platform_.applicationFocus->setActivationPolicy(ApplicationFocus::ActivationPolicy::Accessory);
    connect(menuBarExtra_.get(), &MenuBarExtra::versionHistoryRequested, this, [this] {
        openWindow(QString::fromLatin1(versionHistory));
    });
    connect(menuBarExtra_.get(), &MenuBarExtra::settingsRequested, this, [this] {
        openWindow(QString::fromLatin1(settings));
    });
    connect(menuBarExtra_.get(), &MenuBarExtra::quitRequested, this, [this] {
        platform_.processControl->terminate();
    });
}

TavrinMacApp::~TavrinMacApp() {
    closeWindows();
}

std::map<QString, TavrinMacApp::Scene> TavrinMacApp::makeScenes() {
    std::map<QString, Scene> scenes;
    scenes[QString::fromLatin1(activityLog)] = {
        tr("Orvel Agent Activity"), QSize(720, 460), [this]() -> QWidget* {
            return new LogWindow(*platform_.logStore, *platform_.clock, model_.logSubsystems());
        }};
    scenes[QString::fromLatin1(versionHistory)] = {
        tr("Orvel Agent Version History"), QSize(520, 480), [this]() -> QWidget* {
            return new VersionHistoryWindow(*platform_.bundle);
        }};
    scenes[QString::fromLatin1(settings)] = {
        tr("Orvel Agent Settings"), std::nullopt, [this]() -> QWidget* {
            auto* const view = new SettingsView(model_, *platform_.bundle);
            connect(view, &SettingsView::activityLogRequested, this, [this] {
                openWindow(QString::fromLatin1(activityLog));
            });
            connect(view, &SettingsView::versionHistoryRequested, this, [this] {
                openWindow(QString::fromLatin1(versionHistory));
            });
            return view;
        }};
    return scenes;
}

void TavrinMacApp::openWindow(const QString& name) {
    menuBarExtra_->closePanel();
    QPointer<QWidget>& window = windows_[name];
    if (!window) {
        window = makeWindow(name);
    }
    platform_.applicationFocus->activate();
    window->setWindowState(window->windowState() & ~Qt::WindowMinimized);
    window->show();
    AppDelegate::rescueOffscreen(*window);
    window->raise();
    window->activateWindow();
}

QWidget* TavrinMacApp::makeWindow(const QString& name) {
    const Scene& scene = scenes_.at(name);
    QWidget* const window = scene.makeContent();
    window->setObjectName(name);
    window->setWindowTitle(scene.title);
    window->setAttribute(Qt::WA_DeleteOnClose);
    window->installEventFilter(this);
    for (const QKeySequence& keys :
         {QKeySequence(Qt::Key_Escape), QKeySequence(Qt::CTRL | Qt::Key_W)}) {
        connect(new QShortcut(keys, window), &QShortcut::activated, window, &QWidget::close);
    }
    if (scene.defaultSize) {
        window->resize(*scene.defaultSize);
    }
    geometry_.restore(*window);
    return window;
}

QCoro::Task<> TavrinMacApp::stop() {
    closeWindows();
    menuBarExtra_.reset();
    return model_.stop();
}

void TavrinMacApp::closeWindows() {
    for (const auto& [name, window] : std::exchange(windows_, {})) {
        if (window) {
            geometry_.save(*window);
            delete window;
        }
    }
}

bool TavrinMacApp::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Close) {
        auto* const window = qobject_cast<QWidget*>(watched);
        geometry_.save(*window);
        // The closed window is deleted later. `openWindow` must not show it again.
        windows_.erase(window->objectName());
    }
    return QObject::eventFilter(watched, event);
}

} // namespace orvel
