// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QColor>
#include <QPalette>
#include <QStyle>
#include <QStyleFactory>

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>

namespace orvel::test {

/// The colour schemes that windows are tested with.
enum class Palette {
    Light,
    Dark,
    /// Qt's default, for desktops that set no colours.
    QtDefault,
    HighContrastLight,
    HighContrastDark,
};

inline constexpr std::array allPalettes{
    Palette::Light,
    Palette::Dark,
    Palette::QtDefault,
    Palette::HighContrastLight,
    Palette::HighContrastDark};

inline const char* name(Palette palette) {
    switch (palette) {
    case Palette::Light:
        return "Light";
    case Palette::Dark:
        return "Dark";
    case Palette::QtDefault:
        return "QtDefault";
    case Palette::HighContrastLight:
        return "HighContrastLight";
    case Palette::HighContrastDark:
        return "HighContrastDark";
    }
    return "";
}

inline std::string nameOfPalette(const testing::TestParamInfo<Palette>& info) {
    return name(info.param);
}

inline QPalette
paletteOf(const QColor& text, const QColor& window, const QColor& base, const QColor& button) {
    QPalette palette(text, button, button.lighter(), button.darker(), Qt::gray, text, base);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Highlight, QColor(0x2f, 0x6f, 0xde));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    QColor faint = text;
    faint.setAlphaF(0.5F);
    palette.setColor(QPalette::PlaceholderText, faint);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, QColor(0x80, 0x80, 0x80));
    }
    return palette;
}

inline QPalette palette(Palette palette) {
    switch (palette) {
    case Palette::Light:
        return paletteOf(
            QColor(0x1d, 0x1d, 0x1f),
            QColor(0xf2, 0xf2, 0xf4),
            Qt::white,
            QColor(0xfa, 0xfa, 0xfa));
    case Palette::Dark:
        return paletteOf(
            QColor(0xf0, 0xf0, 0xf2),
            QColor(0x2a, 0x2a, 0x2d),
            QColor(0x1f, 0x1f, 0x22),
            QColor(0x3c, 0x3c, 0x40));
    case Palette::QtDefault: {
        const std::unique_ptr<QStyle> fusion(QStyleFactory::create(QStringLiteral("Fusion")));
        return fusion->standardPalette();
    }
    case Palette::HighContrastLight:
        return paletteOf(Qt::black, Qt::white, Qt::white, Qt::white);
    case Palette::HighContrastDark:
        return paletteOf(Qt::white, Qt::black, Qt::black, Qt::black);
    }
    return {};
}

} // namespace orvel::test
