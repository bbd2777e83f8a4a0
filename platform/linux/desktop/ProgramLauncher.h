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

/// Starts programs that the user will see.
///
/// Some programs exit at once, others when the user closes them, so a program that is still running
/// after five seconds counts as a success. Programs outlive the launcher. Main thread; borrows the
/// clock.
class ProgramLauncher final {
public:
    /// The failure, such as "xdg-open ended with status 3"; nothing on success.
    using Completion = std::function<void(std::optional<tavrin::PlatformError>)>;

    explicit ProgramLauncher(Clock& clock);
    ~ProgramLauncher();
    ProgramLauncher(const ProgramLauncher&) = delete;
    ProgramLauncher& operator=(const ProgramLauncher&) = delete;

    /// Starts a program found on the PATH. Calls back exactly once, never before this returns; not
    /// at all when the launcher is destroyed first. The callback may destroy it.
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
    /// Destroyed first: drops pending callbacks.
    std::unique_ptr<QObject> callbackContext_;
};

} // namespace orvel
