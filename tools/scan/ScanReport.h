// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/CollectorService.h"
#include "platform/Clock.h"

#include <cstdio>
#include <string>

namespace orvel {

/// The summary as several lines of text.
[[nodiscard]] std::string
describe(const CollectorService::ScanSummary& summary, bool isBackfillDone);

/// The summary as one JSON object. The keys are the field names.
[[nodiscard]] std::string json(const CollectorService::ScanSummary& summary);

/// A number with thousands separators: 1,000,000.
[[nodiscard]] std::string grouped(std::int64_t number);

/// Prints the progress of a scan: one line that is overwritten on a terminal, else a new line every
/// few seconds.
class ScanProgressLine final {
public:
    /// Borrows the stream and the clock.
    ScanProgressLine(std::FILE* stream, bool isTerminal, const Clock& clock);

    void show(const CollectorService::Progress& progress);

    /// Clears the line on a terminal.
    void clear();

    /// The line after that many seconds.
    [[nodiscard]] static std::string
    text(const CollectorService::Progress& progress, double seconds);

private:
    std::FILE* stream_;
    bool isTerminal_;
    const Clock& clock_;
    tavrin::Seconds startedAt_;
    tavrin::Seconds shownAt_;
    bool isShown_ = false;
};

} // namespace orvel
