// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/PanelPlacement.h"

#include <algorithm>

namespace orvel {

namespace {

/// Of an icon from its middle, to be kept free, so that no row of the panel lies under the pointer.
constexpr int halfIcon = 16;

} // namespace

std::optional<QRect> iconPlace(const QRect& geometry, std::optional<QPoint> click) {
    if (!geometry.isEmpty() && (!click || geometry.contains(*click))) {
        return geometry;
    }
    if (!click) {
        return std::nullopt;
    }
    return QRect(click->x() - halfIcon, click->y() - halfIcon, 2 * halfIcon, 2 * halfIcon);
}

QPoint panelPlace(const std::optional<QRect>& icon, const QRect& available, QSize panel) {
    // Of a panel larger than the screen, the beginning is seen.
    const QPoint last(
        std::max(available.left(), available.right() + 1 - panel.width()),
        std::max(available.top(), available.bottom() + 1 - panel.height()));
    const auto inside = [&](QPoint place) {
        return QPoint(
            std::clamp(place.x(), available.left(), last.x()),
            std::clamp(place.y(), available.top(), last.y()));
    };
    if (!icon) {
        return inside(available.center() - QPoint(panel.width() / 2, panel.height() / 2));
    }
    const int middle = icon->x() + icon->width() / 2;
    const bool isBelow = icon->y() + icon->height() / 2 < available.center().y();
    const int y = isBelow ? icon->y() + icon->height() : icon->y() - panel.height();
    return inside({middle - panel.width() / 2, y});
}

} // namespace orvel
