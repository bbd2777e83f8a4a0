// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

/// Spacing, fonts and colours of all windows. Lengths are in device-independent pixels.
namespace orvel::Theme {

/// The panel is wider only if a single control needs it.
inline constexpr int panelWidth = 340;
/// Around the content of a panel or a window.
inline constexpr int windowPadding = 14;
/// Between blocks.
inline constexpr int blockSpacing = 10;
/// Between the lines of one block.
inline constexpr int lineSpacing = 4;
/// Between adjacent controls in a row.
inline constexpr int controlSpacing = 8;
/// Between the edge of a card and its content.
inline constexpr int cardPadding = 10;
/// Left and right of the text of a button.
inline constexpr int buttonPadding = 4;
inline constexpr int cornerRadius = 6;
inline constexpr int hairline = 1;
/// The application icon in a dialog.
inline constexpr int dialogIconSize = 48;

enum class TextStyle { Title, Headline, Body, Callout, Caption, Monospaced };

/// Scaled from the application font, so that it follows the user's text size.
[[nodiscard]] QFont font(TextStyle style);

/// The side of a symbol in a line of that text.
[[nodiscard]] int symbolSize(TextStyle style);

enum class Role { Primary, Secondary, Red, Orange, Green, Blue };

/// For text and symbols. Its contrast with the window and every `Surface` is at least 4.5 to 1, or
/// 7 to 1 in a high-contrast palette.
[[nodiscard]] QColor color(Role role, const QPalette& palette);

/// For text in lists and editors, whose background is the base colour. Same contrast.
[[nodiscard]] QColor colorOnBase(Role role, const QPalette& palette);

enum class Surface { Card, Banner };

/// The background of the block.
[[nodiscard]] QColor color(Surface surface, const QPalette& palette);
[[nodiscard]] QColor borderColor(Surface surface, const QPalette& palette);

[[nodiscard]] bool isDark(const QPalette& palette);

/// The WCAG contrast ratio of two opaque colours, 1 to 21.
[[nodiscard]] double contrast(const QColor& first, const QColor& second);

} // namespace orvel::Theme
