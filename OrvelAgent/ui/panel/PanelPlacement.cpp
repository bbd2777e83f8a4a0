// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/PanelPlacement.h"

#include <algorithm>

namespace orvel {

namespace {

/// The assumed distance from an icon's centre to its edge. The panel must not cover the pointer.
constexpr int halfIcon = 16;

} // namespace

std::optional<QRect> iconRect(const QRect& geometry, std::optional<QPoint> click) {
    if (!geometry.isEmpty() && (!click || geometry.contains(*click))) {
        return geometry;
    }
    if (!click) {
        return std::nullopt;
    }
    return QRect(click->x() - halfIcon, click->y() - halfIcon, 2 * halfIcon, 2 * halfIcon);
}

QPoint panelPosition(const std::optional<QRect>& icon, const QRect& available, QSize panel) {
    // If the panel is larger than the screen, show its top left corner.
    const QPoint bottomRight(
        std::max(available.left(), available.right() + 1 - panel.width()),
        std::max(available.top(), available.bottom() + 1 - panel.height()));
    const auto inside = [&](QPoint position) {
        return QPoint(
            std::clamp(position.x(), available.left(), bottomRight.x()),
            std::clamp(position.y(), available.top(), bottomRight.y()));
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
