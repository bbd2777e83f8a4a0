// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

class QObject;

namespace orvel {

/// A run of another program that came to its end.
struct FinishedProgram {
    /// The exit status, or 128 and the number of the signal that ended it.
    int status = 0;
    std::string output;
};

enum class ProgramOutput {
    Dropped,
    /// Its beginning at least; for programs that leave nothing running that could print more.
    Kept,
};

/// Runs one of the desktop's programs, found on the PATH, which gets nothing to read, no variable
/// of ours ("ORVEL_…"), no token to come to the front that was given to us, and no terminal: it
/// lives on as long as it likes, whatever becomes of this process. Then calls back on this thread
/// with its end, or the reason why it did not start, unless the context has gone by then; never
/// before this returns.
void runDesktopProgram(
    std::vector<std::string> commandLine,
    ProgramOutput output,
    QObject* context,
    std::function<void(std::variant<FinishedProgram, tavrin::PlatformError>)> end);

/// Starts, before it returns, what lives on after this process: as above, but with the variables
/// that are ours, and nobody waits for it. Gives the reason when it could not be started.
[[nodiscard]] std::optional<tavrin::PlatformError>
startSuccessor(std::vector<std::string> commandLine);

} // namespace orvel
