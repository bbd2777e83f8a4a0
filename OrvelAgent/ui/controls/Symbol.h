// SPDX-License-Identifier: Apache-2.0
#pragma once

class QColor;
class QIcon;
class QPixmap;

namespace orvel {

/// Our own monochrome drawings, legible at 16 pixels.
enum class Symbol {
    StatusIcon,
    StatusIconAlert,
    ExclamationMarkTriangleFill,
    ArrowTriangle2CirclePath,
    PauseCircle,
    ExclamationMarkTriangle,
    Gear,
    HandRaised,
    DocOnDoc,
    CheckMark,
    ClockArrowCirclePath,
};

/// `size` is the side in device-independent pixels. The result is cached.
[[nodiscard]] QPixmap symbolPixmap(Symbol symbol, int size, const QColor& color, double ratio);

/// For buttons and tabs: sharp at 16 to 48 pixels, at single and double density.
[[nodiscard]] QIcon symbolIcon(Symbol symbol, const QColor& color);

/// For a panel of unknown colour: has a rim in black or white, so that it is visible on any
/// background.
[[nodiscard]] QIcon symbolTrayIcon(Symbol symbol, const QColor& color);

/// For a menu bar that colours its icons itself.
[[nodiscard]] QIcon symbolTemplateIcon(Symbol symbol);

[[nodiscard]] QIcon applicationIcon();

} // namespace orvel
