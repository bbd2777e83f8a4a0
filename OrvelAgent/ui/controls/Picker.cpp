// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Picker.h"

#include <QWheelEvent>

namespace orvel {

void Picker::wheelEvent(QWheelEvent* event) {
    event->ignore();
}

} // namespace orvel
