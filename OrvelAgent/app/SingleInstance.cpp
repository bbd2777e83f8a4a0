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
    // On standard error too: the log may be filtered, and a user may have started it in a terminal.
    fmt::print(stderr, "{}\n", text);
    logStore.write(LogLevel::Error, "lifecycle", text);
    registry.activateCopy(*other);
    // Skip the destructors: one of them could wait for a bus that does not answer.
    std::_Exit(EXIT_SUCCESS);
}

} // namespace orvel
