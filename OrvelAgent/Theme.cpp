// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/Theme.h"

#include <QApplication>
#include <QFontDatabase>

namespace orvel::Theme {

namespace {

constexpr double titleScale = 1.35;
constexpr double calloutScale = 0.95;
constexpr double captionScale = 0.85;

QFont scaled(QFont font, double scale) {
    if (font.pointSizeF() > 0) {
        font.setPointSizeF(font.pointSizeF() * scale);
    } else {
        font.setPixelSize(qRound(font.pixelSize() * scale));
    }
    return font;
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() <
           palette.color(QPalette::WindowText).lightness();
}

} // namespace

QFont font(TextStyle style) {
    QFont font = QApplication::font();
    switch (style) {
    case TextStyle::Title:
        font = scaled(font, titleScale);
        font.setWeight(QFont::DemiBold);
        break;
    case TextStyle::Headline:
        font.setWeight(QFont::DemiBold);
        break;
    case TextStyle::Body:
        break;
    case TextStyle::Callout:
        font = scaled(font, calloutScale);
        break;
    case TextStyle::Caption:
        font = scaled(font, captionScale);
        break;
    case TextStyle::Monospaced: {
        QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
        if (font.pointSizeF() > 0) {
            fixed.setPointSizeF(font.pointSizeF() * calloutScale);
        } else {
            fixed.setPixelSize(qRound(font.pixelSize() * calloutScale));
        }
        return fixed;
    }
    }
    return font;
}

QColor color(Role role, const QPalette& palette) {
    const bool dark = isDark(palette);
    switch (role) {
    case Role::Primary:
        break;
    case Role::Secondary:
        return palette.color(QPalette::PlaceholderText);
    case Role::Red:
        return dark ? QColor(0xff, 0x7b, 0x72) : QColor(0xb4, 0x23, 0x18);
    case Role::Orange:
        return dark ? QColor(0xff, 0xb4, 0x54) : QColor(0xa0, 0x50, 0x00);
    case Role::Green:
        return dark ? QColor(0x6c, 0xd0, 0x8a) : QColor(0x1a, 0x7f, 0x37);
    case Role::Blue:
        return dark ? QColor(0x79, 0xb8, 0xff) : QColor(0x0b, 0x5c, 0xc4);
    }
    return palette.color(QPalette::WindowText);
}

} // namespace orvel::Theme
