// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

namespace orvel::TerminalQuestion {

/// Prints the question to standard error and returns at once. Later calls `answer` with whether the
/// user's line begins with "y". If the terminal closes, raises SIGHUP instead. Needs the event
/// loop.
void ask(const std::string& question, std::function<void(bool)> answer);

} // namespace orvel::TerminalQuestion
