// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {
class Bundle;
class LogStore;
class Workspace;
} // namespace orvel

/// One copy of the application per session.
namespace orvel::SingleInstance {

/// When another copy runs already, says so on standard error and in the log, brings that copy to
/// the front, and ends this process at once with exit status 0. Otherwise this is the one copy for
/// as long as the workspace lives. For the start of the program, before there is anything to lose.
void terminateIfAlreadyRunning(const Bundle& bundle, Workspace& workspace, LogStore& logStore);

} // namespace orvel::SingleInstance
