// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/SingleInstance.h"

#include "platform/Bundle.h"
#include "platform/LogStore.h"
#include "platform/Workspace.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace orvel {

void SingleInstance::terminateIfAlreadyRunning(
    const Bundle& bundle, Workspace& workspace, LogStore& logStore) {
    const std::string identifier = bundle.identifier();
    if (identifier.empty()) {
        return;
    }
    const auto other = workspace.runningCopy(identifier);
    if (!other) {
        return;
    }
    const std::string text = fmt::format(
        "Another instance is already running (pid {}); this copy is exiting.",
        other->processIdentifier);
    // First here: whoever started it from a terminal sees it even when the log is filtered.
    fmt::print(stderr, "{}\n", text);
    logStore.write(LogLevel::Error, "lifecycle", text);
    workspace.activateCopy(*other);
    // Not by way of destructors: one of them may wait for a bus that does not answer.
    std::_Exit(EXIT_SUCCESS);
}

} // namespace orvel
