// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/LogWindow.h"
#include "OrvelAgent/ui/panel/ContactsQuestion.h"
#include "OrvelAgent/ui/panel/MenuBarContentView.h"
#include "OrvelAgent/ui/settings/SettingsView.h"
#include "OrvelAgent/ui/update/UpdateWindow.h"
#include "OrvelAgent/ui/update/UpdateWindowPresenter.h"
#include "OrvelAgent/ui/update/VersionHistoryWindow.h"
#include "tests/support/RunTask.h"
#include "tests/support/SampleAgent.h"
#include "tests/support/widgets/Palettes.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFont>
#include <QHash>
#include <QImage>
#include <QPixmap>
#include <QStyleFactory>
#include <QTabWidget>
#include <QTemporaryDir>

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace orvel {

namespace {

using test::AgentState;
using test::SampleAgent;

constexpr const char* sampleChangelog = R"(# Changelog

## [1.2.3] - 2024-03-02

### Added

- The tray application: whether collection works, and what blocks it, at a glance.
- Updates that are checked before they are installed.

### Fixed

- A scan that was cut off while it was sending goes on where it stood.

## [1.2.2] - 2024-01-15

### Changed

- The history is read in the background, with pauses.
)";

/// Keeps the 256 most frequent colours, which halves the file without a visible difference.
QImage withFewColors(const QImage& image) {
    QHash<QRgb, int> counts;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            ++counts[image.pixel(x, y)];
        }
    }
    QList<QRgb> colors = counts.keys();
    std::ranges::sort(
        colors, std::greater(), [&](QRgb color) { return std::pair(counts.value(color), color); });
    constexpr int most = 256;
    colors.resize(std::min<qsizetype>(most, colors.size()));
    return image.convertToFormat(QImage::Format_Indexed8, colors, Qt::AvoidDither);
}

/// Saves an image of every window in every state, with a light and a dark palette.
class Screenshots final {
public:
    explicit Screenshots(QDir folder) : folder_(std::move(folder)) {}

    void take() {
        for (const auto& [palette, name] :
             {Desktop{test::Palette::Light, "light"}, Desktop{test::Palette::Dark, "dark"}}) {
            QApplication::setPalette(test::palette(palette));
            desktop_ = name;
            takePanels();
            takeWindows();
            takeUpdates();
        }
    }

private:
    struct Desktop {
        test::Palette palette;
        const char* name;
    };

    void takePanels() {
        for (const AgentState state : test::allAgentStates) {
            takePanel(test::name(state), state);
        }
        QApplication::setLayoutDirection(Qt::RightToLeft);
        takePanel("right-to-left", AgentState::ContactsMissing);
        QApplication::setLayoutDirection(Qt::LeftToRight);
    }

    void takePanel(const char* name, AgentState state) {
        SampleAgent agent(state);
        MenuBarContentView panel(agent.model());
        panel.setWindowFlags(Qt::Tool | Qt::FramelessWindowHint);
        save(panel, fmt::format("panel-{}", name));
    }

    void takeWindows() {
        SampleAgent agent(AgentState::NothingWrong);
        agent.with.bundle.setResource("CHANGELOG.md", sampleChangelog);

        SettingsView settings(agent.model(), agent.with.bundle);
        auto* tabs = settings.findChild<QTabWidget*>();
        tabs->setCurrentIndex(0);
        save(settings, "settings-general");
        tabs->setCurrentIndex(1);
        save(settings, "settings-privacy");

        agent.with.service.setAnswer(
            test::FakeService::ingestPath, 503, "The service is being updated.");
        agent.with.clock.advance(CollectionLoop::scanInterval);
        agent.finishScan();
        LogWindow log(agent.with.logStore, agent.with.clock, agent.model().logSubsystems());
        log.resize(720, 460);
        save(log, "activity-log");

        VersionHistoryWindow history(agent.with.bundle);
        history.resize(520, 480);
        save(history, "version-history");

        ContactsQuestion question(QStringLiteral("Orvel Agent"), {});
        question.setAttribute(Qt::WA_DeleteOnClose, false);
        save(question, "contacts-question");
    }

    void takeUpdates() {
        SampleAgent agent(AgentState::NothingWrong);
        const UpdateWindowPresenter::Desktop desktop{
            agent.with.workspace,
            agent.with.motionPreference,
            agent.with.applicationFocus,
            agent.with.processControl};
        UpdateWindowPresenter presenter(agent.with.softwareUpdater, desktop, agent.with.bundle);
        const SoftwareUpdate update{
            "130",
            "1.3.0",
            "Added\n- Messages of the last day are counted in the panel.\n\n"
            "Fixed\n- Two screens of different density show sharp icons.",
            12'300'000};
        presenter.show(UpdatePresenter::Offer{update});
        save(*presenter.window(), "update-offer");
        presenter.show(UpdatePresenter::Download{7'400'000, 12'300'000});
        save(*presenter.window(), "update-download");
        presenter.show(
            UpdatePresenter::Refusal{"The update is not signed with the key of this application."});
        save(*presenter.window(), "update-refused");
    }

    void save(QWidget& window, const std::string& name) {
        window.show();
        test::processEvents();
        const std::string file = fmt::format("{}-{}.png", name, desktop_);
        constexpr int smallestFile = 0;
        if (!withFewColors(window.grab().toImage())
                 .save(folder_.filePath(QString::fromStdString(file)), "PNG", smallestFile)) {
            throw std::runtime_error("Could not write " + file);
        }
    }

    QDir folder_;
    const char* desktop_ = "";
};

/// A screen that is higher than any panel and has double density.
QString writeScreen(const QTemporaryDir& folder) {
    QFile file(folder.filePath(QStringLiteral("screen.json")));
    const bool isOpen = file.open(QIODevice::WriteOnly);
    file.write(R"({"screens": [{"name": "screen", "x": 0, "y": 0, "width": 3000, "height": 3000,
                                "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 2}]})");
    return isOpen ? file.fileName() : QString();
}

} // namespace

} // namespace orvel

int main(int argc, char** argv) {
    // Make the images independent of the machine and its settings.
    const QTemporaryDir folder;
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + orvel::writeScreen(folder).toUtf8());
    qputenv("XDG_RUNTIME_DIR", folder.path().toUtf8());
    qputenv("TZ", "UTC");
    qputenv("LC_ALL", "C.UTF-8");
    qunsetenv("QT_QPA_PLATFORMTHEME");
    qunsetenv("QT_STYLE_OVERRIDE");
    qunsetenv("QT_SCALE_FACTOR");
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    const QApplication application(argc, argv);
    QApplication::setFont(QFont(QStringLiteral("DejaVu Sans"), 10));
    QApplication::setQuitOnLastWindowClosed(false);
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() != 2 || !QDir(arguments.at(1)).exists()) {
        fmt::print(stderr, "usage: orvel-screenshots FOLDER\n");
        return 2;
    }
    try {
        orvel::Screenshots(QDir(arguments.at(1))).take();
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        return 1;
    }
    return 0;
}
