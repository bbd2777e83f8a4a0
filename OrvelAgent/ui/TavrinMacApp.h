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

/// The application: the one model, the icon in the tray, and the windows that open on request. A
/// window exists while it is open, and remembers where it was.
///
/// Borrows the platform and the presenter of updates.
class TavrinMacApp final : public QObject {
    Q_OBJECT

public:
    // The windows, which are also their object names.
    static constexpr auto activityLog = "activity-log";
    static constexpr auto versionHistory = "version-history";
    static constexpr auto settings = "settings";

    /// Begins to collect, and shows the icon.
    TavrinMacApp(
        Platform& platform,
        UpdatePresenter& updatePresenter,
        CollectorService::Options options = {});
    ~TavrinMacApp() override;

    /// Opens the window of that name, or brings it to the front when it is open.
    void openWindow(const QString& name);

    /// The windows and the icon go at once; then ends what the model does. Never throws.
    QCoro::Task<> stop();

    [[nodiscard]] AppModel& model() { return model_; }
    [[nodiscard]] MenuBarExtra& menuBarExtra() { return *menuBarExtra_; }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Scene {
        QString title;
        /// Fitted to its content when absent.
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
