// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/LogStore.h"
#include "platform/linux/support/CallbackContext.h"
#include "platform/linux/support/OwnProgram.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace orvel {

/// Makes the desktop start `orvel-agent-callback` for URLs of the scheme "orvelagent".
///
/// An installed agent has a desktop entry for the scheme. Unless the entry in effect names exactly
/// this agent's program, belongs to the user or to root, and cannot be written by other users
/// (`canOthersWrite`), writes an entry for the current user and makes it the scheme's default.
/// Failures are logged under "auth"; sign-in continues, because the browser may still ask the user
/// which program to start.
///
/// Main thread; never blocks it. Borrows the clock and the log store.
class SchemeRegistration final {
public:
    /// The program beside the running one.
    [[nodiscard]] static std::filesystem::path callbackProgram();

    /// The program to register: the callback program, or the AppImage that contains it. An AppImage
    /// passes the URL on (`passOnCallback`). Its mount point is unsuitable: after its end, any user
    /// can create the folder again, with another program. An AppImage that was extracted is a
    /// folder like any other: it runs without the variable "APPIMAGE", so its callback program is
    /// registered.
    [[nodiscard]] static std::filesystem::path program(const ProgramTraces& traces);

    SchemeRegistration(std::filesystem::path program, Clock& clock, LogStore& logStore);

    /// Calls back once, on success or failure, after at most ten seconds; never before this
    /// returns, and not at all when this object is destroyed first.
    void ensure(std::function<void()> completion);

private:
    void writeEntry(bool isDefault);
    void makeDefault(const std::string& folder);
    /// Ends the current run.
    void end(const std::string& failure = {});

    std::filesystem::path program_;
    Clock& clock_;
    LogStore& logStore_;
    std::vector<std::function<void()>> completions_;
    std::unique_ptr<Clock::Timer> timer_;
    /// Destroyed first: drops pending callbacks.
    std::optional<CallbackContext> callbackContext_{std::in_place};
};

} // namespace orvel
