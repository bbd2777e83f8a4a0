// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

/// Questions on the terminal that the process was started from.
namespace orvel::TerminalQuestion {

/// Prints the question to standard error and answers with whether a line that begins with "y"
/// comes in. Needs the event loop, which goes on meanwhile. When the terminal goes away instead,
/// there is no answer, but the signal for that.
void ask(const std::string& question, std::function<void(bool)> answer);

} // namespace orvel::TerminalQuestion
