// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"
#include "platform/Clock.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QObject;

namespace orvel {

/// Starts the desktop's programs for the user to see.
///
/// Some of them become what they show and live as long as it, so one that still runs after five
/// seconds counts as a success. Destroying the launcher leaves the programs alone. Main thread;
/// borrows the clock.
class ProgramLauncher final {
public:
    /// Why it failed, as "xdg-open ended with status 3"; nothing when it did not.
    using Completion = std::function<void(std::optional<tavrin::PlatformError>)>;

    explicit ProgramLauncher(Clock& clock);
    ~ProgramLauncher();
    ProgramLauncher(const ProgramLauncher&) = delete;
    ProgramLauncher& operator=(const ProgramLauncher&) = delete;

    /// Of a program on the PATH. Calls back exactly once, never before this returns; not at all
    /// when the launcher is destroyed first, which the callback may do.
    void launch(std::vector<std::string> commandLine, Completion completion);

private:
    struct Launch {
        Completion completion;
        std::unique_ptr<Clock::Timer> timer;
    };

    void finish(std::uint64_t launch, const std::optional<tavrin::PlatformError>& error);

    Clock& clock_;
    std::map<std::uint64_t, Launch> launches_;
    std::uint64_t last_ = 0;
    /// Destroyed first: what comes back is dropped with it.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
