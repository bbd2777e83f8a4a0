// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

/// The one look of all windows: spacing, type and colours. Lengths are in device-independent
/// pixels.
namespace orvel::Theme {

/// Of the panel; it grows beyond that only for a single control that would be cut.
inline constexpr int panelWidth = 340;
/// Around the content of a panel or a window.
inline constexpr int windowPadding = 14;
/// Between blocks.
inline constexpr int blockSpacing = 10;
/// Between the lines of one block.
inline constexpr int lineSpacing = 4;
/// Between controls that stand side by side.
inline constexpr int controlSpacing = 8;
/// Between the edge of a card and its content.
inline constexpr int cardPadding = 10;
/// Beside the text of a button.
inline constexpr int buttonPadding = 4;
inline constexpr int cornerRadius = 6;
inline constexpr int hairline = 1;
/// Of the application's icon in a window that asks something.
inline constexpr int dialogIconSize = 48;

enum class TextStyle { Title, Headline, Body, Callout, Caption, Monospaced };

/// In proportion to the application's font, so that larger text stays larger.
[[nodiscard]] QFont font(TextStyle style);

/// The side of a symbol that stands in a line of that text.
[[nodiscard]] int symbolSize(TextStyle style);

enum class Role { Primary, Secondary, Red, Orange, Green, Blue };

/// A colour of text and symbols that can be read on the window colour and on every surface below,
/// with a contrast of 4.5 to 1, or of 7 to 1 when the palette is one of high contrast.
[[nodiscard]] QColor color(Role role, const QPalette& palette);

/// The same for the text of a list or an editor, which lies on the base colour.
[[nodiscard]] QColor colorOnBase(Role role, const QPalette& palette);

enum class Surface { Card, Banner };

/// What lies under a block that stands out from the window.
[[nodiscard]] QColor color(Surface surface, const QPalette& palette);
/// The line around it.
[[nodiscard]] QColor borderColor(Surface surface, const QPalette& palette);

[[nodiscard]] bool isDark(const QPalette& palette);

/// Of two opaque colours, from 1 to 21, as the Web Content Accessibility Guidelines measure it.
[[nodiscard]] double contrast(const QColor& first, const QColor& second);

} // namespace orvel::Theme
