// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/ScanReport.h"

#include "core/Text.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace orvel {

namespace {

constexpr tavrin::Seconds terminalInterval{0.1};
constexpr tavrin::Seconds plainInterval{5};
constexpr int barWidth = 20;

std::string duration(double seconds) {
    const auto whole = static_cast<std::int64_t>(std::clamp(seconds, 0.0, 8640000.0));
    if (whole >= 3600) {
        return fmt::format("{} h {:02} min", whole / 3600, whole / 60 % 60);
    }
    if (whole >= 60) {
        return fmt::format("{} min {:02} s", whole / 60, whole % 60);
    }
    return fmt::format("{} s", whole);
}

std::string bar(double fraction) {
    const auto filled = std::lround(std::clamp(fraction, 0.0, 1.0) * barWidth);
    return fmt::format("[{:#>{}}{:.>{}}]", "", filled, "", barWidth - filled);
}

} // namespace

std::string grouped(std::int64_t number) {
    std::string digits = fmt::format("{}", number);
    const std::size_t first = number < 0 ? 1 : 0;
    for (std::size_t end = digits.size(); end > first + 3; end -= 3) {
        digits.insert(end - 3, 1, ',');
    }
    return digits;
}

std::string describe(const CollectorService::ScanSummary& summary, bool isBackfillDone) {
    std::string text = summary.error
                           ? "Scan ended with an error: " + tavrin::onOneLine(*summary.error) + "\n"
                           : std::string("Scan done.\n");
    const auto line = [&text](std::string_view name, const std::string& value) {
        text += fmt::format("  {:<28}{:>12}\n", name, value);
    };
    line("Rows examined", grouped(summary.scanned));
    line("Messages collected", grouped(summary.collected));
    line("Sent and accepted", grouped(summary.uploaded));
    line("Out of scope", grouped(summary.skippedOutOfScope));
    line("Not messages", grouped(summary.skippedNotUserContent));
    line("Text not readable", grouped(summary.skippedUndecodable));
    line("Mode", std::string(tavrin::rawValue(summary.mode)));
    line("History", isBackfillDone ? "complete" : "in progress");
    line("Watermark", fmt::format("{}", summary.watermark));
    line("Took", duration((summary.finishedAt - summary.startedAt).count()));
    return text;
}

std::string json(const CollectorService::ScanSummary& summary) {
    boost::json::object object;
    object.emplace("id", summary.id.toString(QUuid::WithoutBraces).toUpper().toStdString());
    object.emplace("startedAt", tavrin::iso8601(summary.startedAt));
    object.emplace("finishedAt", tavrin::iso8601(summary.finishedAt));
    object.emplace("scanned", summary.scanned);
    object.emplace("collected", summary.collected);
    object.emplace("skippedOutOfScope", summary.skippedOutOfScope);
    object.emplace("skippedUndecodable", summary.skippedUndecodable);
    object.emplace("skippedNotUserContent", summary.skippedNotUserContent);
    object.emplace("uploaded", summary.uploaded);
    object.emplace("watermark", summary.watermark);
    object.emplace("mode", tavrin::rawValue(summary.mode));
    if (summary.error) {
        object.emplace("error", *summary.error);
    }
    return boost::json::serialize(object);
}

ScanProgressLine::ScanProgressLine(std::FILE* stream, bool isTerminal, const Clock& clock)
    : stream_(stream),
      isTerminal_(isTerminal),
      clock_(clock),
      startedAt_(clock.uptime()),
      shownAt_(startedAt_) {}

void ScanProgressLine::show(const CollectorService::Progress& progress) {
    const tavrin::Seconds now = clock_.uptime();
    if (now - shownAt_ < (isTerminal_ ? terminalInterval : plainInterval)) {
        return;
    }
    shownAt_ = now;
    isShown_ = true;
    const std::string line = text(progress, (now - startedAt_).count());
    if (isTerminal_) {
        fmt::print(stream_, "\r\x1b[K{}", line);
        std::fflush(stream_);
    } else {
        fmt::print(stream_, "{}\n", line);
    }
}

void ScanProgressLine::clear() {
    if (isTerminal_ && isShown_) {
        fmt::print(stream_, "\r\x1b[K");
        std::fflush(stream_);
    }
    isShown_ = false;
}

std::string ScanProgressLine::text(const CollectorService::Progress& progress, double seconds) {
    const double rate = seconds > 0 ? static_cast<double>(progress.scanned) / seconds : 0;
    std::string line;
    if (progress.backfillFraction) {
        line = fmt::format(
            "{} {:3.0f} %  ", bar(*progress.backfillFraction), *progress.backfillFraction * 100);
    }
    line += fmt::format(
        "{} examined, {} sent, {} a second",
        grouped(progress.scanned),
        grouped(progress.uploaded),
        grouped(std::llround(rate)));
    if (progress.backfillFraction && *progress.backfillFraction > 0) {
        const double left = seconds * (1 / *progress.backfillFraction - 1);
        line += ", " + duration(left) + " left";
    }
    return line;
}

} // namespace orvel
