// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/ui/AppDelegate.h"
#include "OrvelAgent/ui/WindowGeometry.h"
#include "OrvelAgent/ui/panel/MenuBarExtra.h"

#include <QObject>
#include <QPointer>
#include <QSize>
#include <QString>

#include <functional>
#include <map>
#include <optional>

class QWidget;

namespace orvel {

/// Owns the model, the tray icon and the windows.
///
/// A window exists only while it is open. Its geometry is saved when it closes. Borrows the
/// platform and the update presenter.
class TavrinMacApp final : public QObject {
    Q_OBJECT

public:
    // Names of the windows, also used as their object names.
    static constexpr auto activityLog = "activity-log";
    static constexpr auto versionHistory = "version-history";
    static constexpr auto settings = "settings";

    /// Starts collecting and shows the icon.
    TavrinMacApp(
        Platform& platform,
        UpdatePresenter& updatePresenter,
        CollectorService::Options options = {});
    ~TavrinMacApp() override;

    /// If the window is already open, brings it to the front.
    void openWindow(const QString& name);

    /// Closes the windows and removes the icon at once, then stops the model. Never throws.
    QCoro::Task<> stop();

    [[nodiscard]] AppModel& model() { return model_; }
    [[nodiscard]] MenuBarExtra& menuBarExtra() { return *menuBarExtra_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Scene {
        QString title;
        /// Without it, the window fits its content.
        std::optional<QSize> defaultSize;
        std::function<QWidget*()> makeContent;
    };

    std::map<QString, Scene> makeScenes();
    QWidget* makeWindow(const QString& name);
    void closeWindows();

    Platform& platform_;
    AppDelegate appDelegate_;
    AppModel model_;
    WindowGeometry geometry_;
    const std::map<QString, Scene> scenes_;
    std::map<QString, QPointer<QWidget>> windows_;
    std::unique_ptr<MenuBarExtra> menuBarExtra_;
};

} // namespace orvel
