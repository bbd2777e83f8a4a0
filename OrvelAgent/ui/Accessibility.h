// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Gives our own windows and widgets their accessible roles. Call it once, after the application
/// object exists and before the first widget.
void installAccessibility();

} // namespace orvel
