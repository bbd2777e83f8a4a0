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

/// The result of a program that ran to its end.
struct FinishedProgram {
    /// The exit status, or 128 plus the number of the signal that ended the program.
    int status = 0;
    std::string output;
};

enum class ProgramOutput {
    Dropped,
    /// Keeps the first part. Only for programs that leave no child process that keeps the output
    /// open.
    Kept,
};

/// Runs a program found on the PATH, without input, terminal, "ORVEL_…" variables, or this
/// process's activation token. The program may outlive this process. Calls back on this thread with
/// its result or the start error, unless the context was destroyed before; never before this
/// returns.
void runDesktopProgram(
    std::vector<std::string> commandLine,
    ProgramOutput output,
    QObject* context,
    std::function<void(std::variant<FinishedProgram, tavrin::PlatformError>)> end);

/// Starts a program that outlives this process, before this returns. Like `runDesktopProgram`, but
/// keeps the "ORVEL_…" variables and does not wait for its end. Returns the error if it could not
/// be started.
[[nodiscard]] std::optional<tavrin::PlatformError>
startSuccessor(std::vector<std::string> commandLine);

} // namespace orvel
