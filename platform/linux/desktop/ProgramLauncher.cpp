// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/ProgramLauncher.h"

#include "platform/linux/support/DesktopProgram.h"

#include <QObject>

#include <fmt/format.h>

#include <utility>
#include <variant>

namespace orvel {

namespace {

constexpr tavrin::Seconds startTimeout(5);

} // namespace

ProgramLauncher::ProgramLauncher(Clock& clock)
    : clock_(clock), callbackContext_(std::make_unique<QObject>()) {}

ProgramLauncher::~ProgramLauncher() = default;

void ProgramLauncher::launch(std::vector<std::string> commandLine, Completion completion) {
    const std::uint64_t launch = ++last_;
    launches_[launch].completion = std::move(completion);
    launches_[launch].timer =
        clock_.schedule(startTimeout, [this, launch] { finish(launch, std::nullopt); });
    std::string program = commandLine.front();
    runDesktopProgram(
        std::move(commandLine),
        ProgramOutput::Dropped,
        callbackContext_.get(),
        [this, launch, program = std::move(program)](const auto& result) {
            if (const auto* error = std::get_if<tavrin::PlatformError>(&result)) {
                finish(launch, *error);
                return;
            }
            std::optional<tavrin::PlatformError> failure;
            if (const int status = std::get<FinishedProgram>(result).status; status != 0) {
                failure.emplace(
                    program, status, fmt::format("{} ended with status {}", program, status));
            }
            finish(launch, failure);
        });
}

void ProgramLauncher::finish(
    std::uint64_t launch, const std::optional<tavrin::PlatformError>& error) {
    if (const auto found = launches_.extract(launch); !found.empty()) {
        // The completion may destroy this object.
        found.mapped().completion(error);
    }
}

} // namespace orvel
