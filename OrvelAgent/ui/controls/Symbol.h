// SPDX-License-Identifier: Apache-2.0
#pragma once

class QColor;
class QIcon;
class QPixmap;

namespace orvel {

/// The drawings of ours: of one colour, and recognisable at 16 pixels.
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

/// The drawing in that colour, `size` by `size` device-independent pixels. Kept for the next call.
[[nodiscard]] QPixmap symbolPixmap(Symbol symbol, int size, const QColor& color, double ratio);

/// For a button or a tab: sharp at 16 to 48 pixels, on screens of single and double density.
[[nodiscard]] QIcon symbolIcon(Symbol symbol, const QColor& color);

/// For a panel whose colour is not known: in that colour, with a rim of its opposite, so that it
/// stands out from whatever is below.
[[nodiscard]] QIcon symbolTrayIcon(Symbol symbol, const QColor& color);

/// For a menu bar that gives its icons their colour: only the shape counts.
[[nodiscard]] QIcon symbolTemplateIcon(Symbol symbol);

/// In its own colours, for windows.
[[nodiscard]] QIcon applicationIcon();

} // namespace orvel
