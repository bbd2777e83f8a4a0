// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>

namespace orvel {

/// Where the tray's icon is: where the tray says, unless that is nowhere, or not where it was
/// clicked. Nothing when nobody knows.
[[nodiscard]] std::optional<QRect> iconPlace(const QRect& geometry, std::optional<QPoint> click);

/// Where the top left corner of the tray icon's panel goes, inside of the available part of the
/// screen: beside the icon, on the side where there is more room, or in the middle of the screen
/// when it is not known where the icon is.
[[nodiscard]] QPoint
panelPlace(const std::optional<QRect>& icon, const QRect& available, QSize panel);

} // namespace orvel
