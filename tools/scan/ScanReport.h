// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/CollectorService.h"
#include "platform/Clock.h"

#include <cstdio>
#include <string>

namespace orvel {

/// The summary in words, several lines.
[[nodiscard]] std::string
describe(const CollectorService::ScanSummary& summary, bool isBackfillDone);

/// The summary as one JSON object, keys named as its fields.
[[nodiscard]] std::string json(const CollectorService::ScanSummary& summary);

/// A number with its thousands apart: 1,000,000.
[[nodiscard]] std::string grouped(std::int64_t number);

/// Shows how far a scan is: a line that rewrites itself on a terminal, else a plain line now and
/// then.
class ScanProgressLine final {
public:
    /// Borrows the stream and the clock.
    ScanProgressLine(std::FILE* stream, bool isTerminal, const Clock& clock);

    void show(const CollectorService::Progress& progress);

    /// Takes the line away again, so that what follows starts on a clean one.
    void clear();

    /// What is shown after that many seconds.
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
