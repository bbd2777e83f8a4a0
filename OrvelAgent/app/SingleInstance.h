// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {
class Bundle;
class InstanceRegistry;
class LogStore;
} // namespace orvel

namespace orvel::SingleInstance {

/// If another copy runs, reports that on standard error and in the log, brings the other copy to
/// the front and ends this process with exit status 0, without running destructors. Otherwise
/// registers this process as the only copy for the lifetime of the registry. Call it before any
/// work starts.
void terminateIfAlreadyRunning(
    const Bundle& bundle, InstanceRegistry& registry, LogStore& logStore);

} // namespace orvel::SingleInstance
