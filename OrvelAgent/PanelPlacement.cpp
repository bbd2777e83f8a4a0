// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/PanelPlacement.h"

#include <algorithm>

namespace orvel {

namespace {

/// Of an icon from its middle, to be kept free, so that no row of the panel lies under the pointer.
constexpr int halfIcon = 16;

} // namespace

QPoint panelPlace(std::optional<QPoint> click, const QRect& available, QSize panel) {
    // Of a panel larger than the screen, the beginning is seen.
    const QPoint last(
        std::max(available.left(), available.right() + 1 - panel.width()),
        std::max(available.top(), available.bottom() + 1 - panel.height()));
    const auto inside = [&](QPoint place) {
        return QPoint(
            std::clamp(place.x(), available.left(), last.x()),
            std::clamp(place.y(), available.top(), last.y()));
    };
    if (!click) {
        return inside(available.center() - QPoint(panel.width() / 2, panel.height() / 2));
    }
    const bool isBelow = click->y() < available.center().y();
    const int above = click->y() - halfIcon - panel.height();
    return inside({click->x() - panel.width() / 2, isBelow ? click->y() + halfIcon : above});
}

} // namespace orvel
