// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>

namespace orvel {

/// The rectangle of the tray icon. Uses `geometry`, as the tray reports it, unless it is empty or
/// does not contain the click. Then it assumes an icon around the click. Empty without either.
[[nodiscard]] std::optional<QRect> iconRect(const QRect& geometry, std::optional<QPoint> click);

/// The top left corner of the panel within `available`: above or below the icon, where there is
/// more room. Without an icon, the panel is centred.
[[nodiscard]] QPoint
panelPosition(const std::optional<QRect>& icon, const QRect& available, QSize panel);

} // namespace orvel
