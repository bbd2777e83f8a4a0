// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Whether another process traces this one. No protection of any kind: a debugger may come later.
[[nodiscard]] bool isDebuggerAttached();

} // namespace orvel
