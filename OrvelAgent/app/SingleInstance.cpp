// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/app/SingleInstance.h"

#include "platform/Bundle.h"
#include "platform/InstanceRegistry.h"
#include "platform/LogStore.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace orvel {

void SingleInstance::terminateIfAlreadyRunning(
    const Bundle& bundle, InstanceRegistry& registry, LogStore& logStore) {
    const std::string identifier = bundle.identifier();
    if (identifier.empty()) {
        return;
    }
    const auto other = registry.runningCopy(identifier);
    if (!other) {
        return;
    }
    const std::string text = fmt::format(
        "Another instance is already running (pid {}); this copy is exiting.",
        other->processIdentifier);
    // First here: whoever started it from a terminal sees it even when the log is filtered.
    fmt::print(stderr, "{}\n", text);
    logStore.write(LogLevel::Error, "lifecycle", text);
    registry.activateCopy(*other);
    // Not by way of destructors: one of them may wait for a bus that does not answer.
    std::_Exit(EXIT_SUCCESS);
}

} // namespace orvel
