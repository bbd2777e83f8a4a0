// SPDX-License-Identifier: Apache-2.0

// Measures the time from the agent's start to its tray icon, and the memory of the idle agent. The
// reference for both is a program that only shows a tray icon.

#include "bench/BenchmarkTable.h"
#include "bench/ChildProcess.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QEventLoop>
#include <QStringList>
#include <QTimer>

#include <fmt/format.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace orvel::bench {

namespace {

using Stopwatch = std::chrono::steady_clock;

constexpr int rounds = 41;
constexpr std::chrono::seconds longestStart(30);
/// Memory is measured when the allocations of the start-up are over.
constexpr std::chrono::seconds settling(10);

/// The tray as seen by programs on the bus. An icon counts as visible once its image has arrived.
class Tray final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(QStringList RegisteredStatusNotifierItems READ items)
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hasHost)
    Q_PROPERTY(int ProtocolVersion READ version)

public:
    Tray() {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (!bus.registerObject(
                QStringLiteral("/StatusNotifierWatcher"),
                this,
                QDBusConnection::ExportAllContents) ||
            !bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"))) {
            throw std::runtime_error("There is no session bus of our own: run this under "
                                     "tests/support/private-session.");
        }
    }

    [[nodiscard]] QStringList items() const { return {}; }
    [[nodiscard]] bool hasHost() const { return true; }
    [[nodiscard]] int version() const { return 0; }

    std::function<void()> onIcon;

public Q_SLOTS:
    void RegisterStatusNotifierItem(const QString& service) { // NOLINT: the bus's name
        QDBusMessage get = QDBusMessage::createMethodCall(
            service,
            QStringLiteral("/StatusNotifierItem"),
            QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("Get"));
        get << QStringLiteral("org.kde.StatusNotifierItem") << QStringLiteral("IconPixmap");
        auto* watcher =
            new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(get), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
            if (watcher->isError()) {
                throw std::runtime_error(watcher->error().message().toStdString());
            }
            watcher->deleteLater();
            onIcon();
        });
    }

Q_SIGNALS:
    void StatusNotifierItemRegistered(const QString& item); // NOLINT: the bus's name
    void StatusNotifierHostRegistered();                    // NOLINT: the bus's name
};

/// The private memory of the process in MiB.
double privateMemory(pid_t pid) {
    std::ifstream file(fmt::format("/proc/{}/smaps_rollup", pid));
    std::string line;
    std::int64_t kibibytes = 0;
    while (std::getline(file, line)) {
        if (line.starts_with("Private_")) {
            kibibytes += std::stoll(line.substr(line.find(':') + 1));
        }
    }
    if (kibibytes == 0) {
        throw std::runtime_error("Could not read the memory of the program.");
    }
    return static_cast<double>(kibibytes) / 1024;
}

void waitFor(std::chrono::milliseconds time) {
    QEventLoop loop;
    QTimer::singleShot(time, &loop, &QEventLoop::quit);
    loop.exec();
}

struct Start {
    double milliseconds = 0;
    double mebibytes = 0;
};

/// Measures the memory only with `untilIdle`, which takes longer.
Start measureStart(Tray& tray, const std::filesystem::path& program, bool untilIdle) {
    QEventLoop loop;
    bool isVisible = false;
    tray.onIcon = [&] {
        isVisible = true;
        loop.quit();
    };
    const auto begin = Stopwatch::now();
    const ChildProcess process({program.string()});
    QTimer::singleShot(longestStart, &loop, &QEventLoop::quit);
    loop.exec();
    Start start;
    start.milliseconds =
        std::chrono::duration<double, std::milli>(Stopwatch::now() - begin).count();
    tray.onIcon = [] {
    };
    if (!isVisible) {
        throw std::runtime_error(program.string() + " showed no icon.");
    }
    if (untilIdle) {
        waitFor(settling);
        start.mebibytes = privateMemory(process.pid());
    }
    return start;
}

int run(const std::filesystem::path& document) {
    const auto programs =
        std::filesystem::path(QCoreApplication::applicationDirPath().toStdString());
    Tray tray;
    // The X server resets when its last client disconnects, which would delay the next program. On
    // a real desktop there are always other clients.
    const std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> otherClient(
        xcb_connect(nullptr, nullptr), xcb_disconnect);
    if (xcb_connection_has_error(otherClient.get()) != 0) {
        throw std::runtime_error("There is no display.");
    }
    std::vector<double> agent;
    std::vector<double> bare;
    Start idleAgent;
    Start idleBare;
    // The first round warms the page cache. Only this round measures memory.
    for (int round = 0; round <= rounds; ++round) {
        const Start ofBare = measureStart(tray, programs / "bare-tray", round == 0);
        const Start ofAgent = measureStart(tray, programs / "orvel-agent", round == 0);
        if (round == 0) {
            idleBare = ofBare;
            idleAgent = ofAgent;
        } else {
            bare.push_back(ofBare.milliseconds);
            agent.push_back(ofAgent.milliseconds);
        }
    }
    std::vector<Line> lines(2);
    lines[0].what = "Start to visible icon ÷ that of a bare Qt tray program";
    lines[0].measured = fmt::format("{:.0f} ms", median(agent));
    lines[0].floor = fmt::format("{:.0f} ms", median(bare));
    lines[0].value = median(agent) / median(bare);
    lines[0].target = 1.5;
    lines[0].unit = " ×";
    lines[1].what = "Private memory of the idle agent, above that of the bare Qt tray program";
    lines[1].measured = fmt::format("{:.1f} MiB", idleAgent.mebibytes);
    lines[1].floor = fmt::format("{:.1f} MiB", idleBare.mebibytes);
    lines[1].value = idleAgent.mebibytes - idleBare.mebibytes;
    lines[1].target = 25;
    lines[1].unit = " MiB";
    const std::string figures = fmt::format(
        "{}Medians of {} starts of each program, alternating, with a warm page cache.\n\n{}",
        machineDescription(programs),
        rounds,
        table(lines));
    fmt::print("{}", figures);
    if (!document.empty()) {
        writeFigures(document, "start", figures);
    }
    return 0;
}

} // namespace

} // namespace orvel::bench

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() > 1 || (arguments.size() == 1 && arguments[0] == "--help")) {
        fmt::print(
            "Usage: start_bench [DOCUMENT]\n\n"
            "Measures what the agent costs a desktop where it does nothing, prints the table and\n"
            "writes it between the markers of the document. Needs a display, and a session bus of\n"
            "its own.\n");
        return arguments.size() == 1 ? 0 : 2;
    }
    try {
        return orvel::bench::run(arguments.empty() ? "" : arguments[0]);
    } catch (const std::exception& error) {
        fmt::print(stderr, "start_bench: {}\n", error.what());
        return 1;
    }
}

#include "StartBench.moc"
