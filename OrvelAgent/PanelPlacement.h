// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

#include <optional>

namespace orvel {

/// Where the top left corner of the tray icon's panel goes, inside of the available part of the
/// screen: beside the icon that was clicked at that point, on the side where there is more room, or
/// in the middle of the screen when there was no click.
[[nodiscard]] QPoint panelPlace(std::optional<QPoint> click, const QRect& available, QSize panel);

} // namespace orvel
