// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Call before the event loop's application object is made: the ports call back from its loop,
/// which not every kind of loop does for them on every system.
void prepareEventLoop();

} // namespace orvel
