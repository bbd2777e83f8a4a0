// SPDX-License-Identifier: Apache-2.0

// Measures the main thread's CPU time from a batch of log entries to the painted list. The list is
// full, and 500 entries are new. The target is one frame (16 ms). CPU time is independent of other
// programs.

#include "OrvelAgent/log/LogReader.h"
#include "OrvelAgent/ui/log/LogListModel.h"
#include "OrvelAgent/ui/log/LogView.h"
#include "bench/BenchmarkTable.h"
#include "platform/Clock.h"
#include "platform/LogStore.h"

#include <QApplication>

#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace orvel::bench {

namespace {

constexpr int rounds = 51;
constexpr int newEntries = 500;
constexpr double frame = 16;

/// Completes a read when `answer()` is called.
class WaitingLogStore final : public LogStore {
public:
    void write(LogLevel, std::string_view, std::string_view) override {}
    void readEntries(tavrin::Date, std::function<void(Entries)> completion) override {
        completion_ = std::move(completion);
    }
    void answer(Entries entries) { std::exchange(completion_, {})(std::move(entries)); }

private:
    std::function<void(Entries)> completion_;
};

/// Fires its timer when `step()` is called.
class SteppedClock final : public Clock {
public:
    [[nodiscard]] tavrin::Date now() const override { return {}; }
    [[nodiscard]] tavrin::Seconds uptime() const override { return {}; }
    [[nodiscard]] std::unique_ptr<Timer>
    schedule(tavrin::Seconds, std::function<void()> callback) override {
        callback_ = std::move(callback);
        return std::make_unique<Timer>();
    }
    void step() { std::exchange(callback_, {})(); }

private:
    std::function<void()> callback_;
};

double processorMilliseconds() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

std::vector<LogEntry> entries(int count, int& number) {
    std::vector<LogEntry> entries;
    for (int index = 0; index < count; ++index) {
        ++number;
        LogEntry entry;
        entry.date = tavrin::Date(tavrin::Seconds(number * 0.002));
        entry.level = number % 20 == 0 ? LogLevel::Error : LogLevel::Info;
        entry.subsystem = "app";
        entry.category = "collector";
        entry.message = fmt::format(
            "batch {} sent: 500 records of 42 threads, 12 kilobytes, 31 ms at the service", number);
        entries.push_back(std::move(entry));
    }
    return entries;
}

void run(const std::filesystem::path& program, const std::filesystem::path& document) {
    WaitingLogStore store;
    SteppedClock clock;
    LogReader reader(store, clock, {"app", "updater"});
    LogListModel model(reader);
    LogView view(model);
    view.resize(900, 700);
    view.show();
    int number = 0;
    reader.startStreaming();
    store.answer(entries(static_cast<int>(LogReader::maximumEntries), number));
    QApplication::processEvents();

    std::vector<double> milliseconds;
    for (int round = 0; round < rounds; ++round) {
        clock.step();
        std::vector<LogEntry> added = entries(newEntries, number);
        const double start = processorMilliseconds();
        store.answer(std::move(added));
        view.viewport()->repaint();
        milliseconds.push_back(processorMilliseconds() - start);
    }
    Line line;
    line.what = fmt::format("{} new entries, from reading them to the painted list", newEntries);
    line.value = median(milliseconds);
    line.measured = fmt::format(
        "{:.1f} ms; slowest of {}: {:.1f} ms",
        line.value,
        rounds,
        *std::ranges::max_element(milliseconds));
    line.floor = "–";
    line.target = frame;
    line.unit = " ms";
    const std::string figures = machineDescription(program.parent_path()) + "\n" + table({line});
    fmt::print("{}", figures);
    if (!document.empty()) {
        writeFigures(document, "log", figures);
    }
}

} // namespace

} // namespace orvel::bench

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() > 1 || (arguments.size() == 1 && arguments[0] == "--help")) {
        fmt::print(
            "Usage: log_bench [DOCUMENT]\n\n"
            "Measures what new entries cost the activity window, prints the table and writes it\n"
            "between the markers of the document.\n");
        return arguments.size() == 1 ? 0 : 2;
    }
    try {
        orvel::bench::run(
            QCoreApplication::applicationFilePath().toStdString(),
            arguments.empty() ? "" : arguments[0]);
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "log_bench: {}\n", error.what());
        return 1;
    }
}
