// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/StatusIcon.h"
#include "OrvelAgent/ui/controls/Symbol.h"

class QIcon;

/// The tray images for each status.
namespace orvel::StatusIconLabel {

[[nodiscard]] Symbol symbol(StatusIcon status);

/// In the desktop's current text colour, visible on any background.
[[nodiscard]] QIcon icon(StatusIcon status);

/// For a menu bar that colours its icons itself.
[[nodiscard]] QIcon templateIcon(StatusIcon status);

} // namespace orvel::StatusIconLabel
