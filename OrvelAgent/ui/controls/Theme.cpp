// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Theme.h"

#include <QApplication>
#include <QFontDatabase>
#include <QFontMetrics>

#include <algorithm>
#include <cmath>
#include <vector>

namespace orvel::Theme {

namespace {

constexpr double titleScale = 1.35;
constexpr double calloutScale = 0.95;
constexpr double captionScale = 0.85;

constexpr double readableContrast = 4.5;
constexpr double highContrast = 7;
/// Ordinary palettes have less contrast between text and window. Qt's default palette has 18.3.
constexpr double contrastOfHighContrastPalettes = 20;

constexpr QColor bannerTint(0xff, 0x9f, 0x0a);

QFont scaled(QFont font, double scale) {
    if (font.pointSizeF() > 0) {
        font.setPointSizeF(font.pointSizeF() * scale);
    } else {
        font.setPixelSize(qRound(font.pixelSize() * scale));
    }
    return font;
}

/// `share` is the part of the second colour, 0 to 1.
QColor mixed(const QColor& first, const QColor& second, double share) {
    const auto mix = [share](int from, int to) {
        return qRound(from + (to - from) * share);
    };
    return {
        mix(first.red(), second.red()),
        mix(first.green(), second.green()),
        mix(first.blue(), second.blue())};
}

QColor text(const QPalette& palette) {
    return palette.color(QPalette::Active, QPalette::WindowText);
}

QColor window(const QPalette& palette) {
    return palette.color(QPalette::Active, QPalette::Window);
}

bool isHighContrast(const QPalette& palette) {
    return contrast(text(palette), window(palette)) >= contrastOfHighContrastPalettes;
}

double neededContrast(const QPalette& palette) {
    return isHighContrast(palette) ? highContrast : readableContrast;
}

struct TextContext {
    QColor text;
    /// The first one decides between dark and light colours.
    std::vector<QColor> backgrounds;
    double neededContrast;
};

/// Mixes the colour with the text colour until the contrast is sufficient on every background.
QColor readable(const QColor& wanted, const TextContext& context) {
    constexpr int steps = 20;
    for (int step = 0; step < steps; ++step) {
        const QColor candidate = mixed(wanted, context.text, double(step) / steps);
        const bool isReadable = std::ranges::all_of(
            context.backgrounds, [&candidate, &context](const QColor& background) {
                return contrast(candidate, background) >= context.neededContrast;
            });
        if (isReadable) {
            return candidate;
        }
    }
    return context.text;
}

/// Relative luminance as WCAG defines it, 0 to 1.
double luminance(const QColor& color) {
    const auto linear = [](double value) {
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

QColor colorFor(const TextContext& context, Role role) {
    const QColor& background = context.backgrounds.front();
    const bool dark = luminance(background) < luminance(context.text);
    switch (role) {
    case Role::Primary:
        break;
    case Role::Secondary:
        return readable(mixed(context.text, background, 0.4), context);
    case Role::Red:
        return readable(dark ? QColor(0xff, 0x7b, 0x72) : QColor(0xb4, 0x23, 0x18), context);
    case Role::Orange:
        return readable(dark ? QColor(0xff, 0xb4, 0x54) : QColor(0xa0, 0x50, 0x00), context);
    case Role::Green:
        return readable(dark ? QColor(0x6c, 0xd0, 0x8a) : QColor(0x1a, 0x7f, 0x37), context);
    case Role::Blue:
        return readable(dark ? QColor(0x79, 0xb8, 0xff) : QColor(0x0b, 0x5c, 0xc4), context);
    }
    return context.text;
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

int symbolSize(TextStyle style) {
    return QFontMetrics(font(style)).height();
}

QColor color(Role role, const QPalette& palette) {
    const TextContext context{
        text(palette),
        {window(palette), color(Surface::Card, palette), color(Surface::Banner, palette)},
        neededContrast(palette)};
    return colorFor(context, role);
}

QColor colorOnBase(Role role, const QPalette& palette) {
    // `neededContrast` uses the window colours: black on white in a list is usual in any palette.
    const TextContext context{
        palette.color(QPalette::Active, QPalette::Text),
        {palette.color(QPalette::Active, QPalette::Base)},
        neededContrast(palette)};
    return colorFor(context, role);
}

QColor color(Surface surface, const QPalette& palette) {
    if (isHighContrast(palette)) {
        return window(palette);
    }
    if (surface == Surface::Banner) {
        return mixed(window(palette), bannerTint, 0.14);
    }
    // Cards are lighter than the window in light and dark palettes.
    return mixed(window(palette), Qt::white, isDark(palette) ? 0.06 : 0.6);
}

QColor borderColor(Surface surface, const QPalette& palette) {
    if (isHighContrast(palette)) {
        return text(palette);
    }
    return surface == Surface::Banner ? mixed(window(palette), bannerTint, 0.5)
                                      : mixed(window(palette), text(palette), 0.16);
}

bool isDark(const QPalette& palette) {
    return luminance(window(palette)) < luminance(text(palette));
}

double contrast(const QColor& first, const QColor& second) {
    constexpr double flare = 0.05;
    const auto [darker, lighter] = std::minmax({luminance(first), luminance(second)});
    return (lighter + flare) / (darker + flare);
}

} // namespace orvel::Theme
