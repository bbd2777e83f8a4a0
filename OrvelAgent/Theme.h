// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>

/// The one look of all windows: spacing, type and colours. Lengths are in device-independent
/// pixels.
namespace orvel::Theme {

/// Around the content of a panel or a window.
inline constexpr int windowPadding = 14;
/// Between blocks.
inline constexpr int blockSpacing = 10;
/// Between the lines of one block.
inline constexpr int lineSpacing = 4;
/// Between controls that stand side by side.
inline constexpr int controlSpacing = 8;
inline constexpr int cornerRadius = 6;

enum class TextStyle { Title, Headline, Body, Callout, Caption, Monospaced };

/// In proportion to the application's font, so that larger text stays larger.
[[nodiscard]] QFont font(TextStyle style);

enum class Role { Primary, Secondary, Red, Orange, Green, Blue };

/// A colour of text and symbols that can be read on the palette's window colour.
[[nodiscard]] QColor color(Role role, const QPalette& palette);

} // namespace orvel::Theme
