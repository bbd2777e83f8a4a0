// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Call before constructing the application object. Selects an event loop that can run the ports'
/// callbacks.
void prepareEventLoop();

} // namespace orvel
