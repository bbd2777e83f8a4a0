// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {
class Bundle;
class InstanceRegistry;
class LogStore;
} // namespace orvel

/// One copy of the application per session.
namespace orvel::SingleInstance {

/// When another copy runs already, says so on standard error and in the log, brings that copy to
/// the front, and ends this process at once with exit status 0. Otherwise this is the one copy for
/// as long as the registry lives. For the start of the program, before there is anything to lose.
void terminateIfAlreadyRunning(
    const Bundle& bundle, InstanceRegistry& registry, LogStore& logStore);

} // namespace orvel::SingleInstance
