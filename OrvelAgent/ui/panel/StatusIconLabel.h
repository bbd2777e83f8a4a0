// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/app/StatusIcon.h"
#include "OrvelAgent/ui/controls/Symbol.h"

class QIcon;

/// What the tray shows for a status. Its words are the model's.
namespace orvel::StatusIconLabel {

[[nodiscard]] Symbol symbol(StatusIcon status);

/// In the text colour of the desktop as it is now, and to be seen on whatever panel.
[[nodiscard]] QIcon icon(StatusIcon status);

/// For a menu bar that gives its icons their colour.
[[nodiscard]] QIcon templateIcon(StatusIcon status);

} // namespace orvel::StatusIconLabel
