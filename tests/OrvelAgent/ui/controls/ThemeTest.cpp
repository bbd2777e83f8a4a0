// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Theme.h"

#include "tests/support/widgets/Palettes.h"

#include <QApplication>

#include <gtest/gtest.h>

#include <algorithm>

namespace orvel {
namespace {

constexpr Theme::Role roles[] = {
    Theme::Role::Primary,
    Theme::Role::Secondary,
    Theme::Role::Red,
    Theme::Role::Orange,
    Theme::Role::Green,
    Theme::Role::Blue};

bool isHighContrast(test::Palette palette) {
    return palette == test::Palette::HighContrastLight ||
           palette == test::Palette::HighContrastDark;
}

double leastContrast(Theme::Role role, const QPalette& palette) {
    const QColor color = Theme::color(role, palette);
    return std::min(
        {Theme::contrast(color, palette.color(QPalette::Window)),
         Theme::contrast(color, Theme::color(Theme::Surface::Card, palette)),
         Theme::contrast(color, Theme::color(Theme::Surface::Banner, palette))});
}

TEST(ThemeTest, MeasuresContrastFromOneToTwentyOne) {
    EXPECT_DOUBLE_EQ(Theme::contrast(Qt::white, Qt::white), 1);
    EXPECT_NEAR(Theme::contrast(Qt::white, Qt::black), 21, 1e-9);
    EXPECT_NEAR(Theme::contrast(QColor(0x76, 0x76, 0x76), Qt::white), 4.54, 0.005);
}

class ThemePaletteTest : public testing::TestWithParam<test::Palette> {};

TEST_P(ThemePaletteTest, EveryTextIsReadableOnEverySurface) {
    const QPalette palette = test::palette(GetParam());
    for (const Theme::Role role : roles) {
        EXPECT_GE(leastContrast(role, palette), isHighContrast(GetParam()) ? 7 : 4.5)
            << "role " << int(role);
    }
}

TEST_P(ThemePaletteTest, OnlyHighContrastUsesTheTextColourForBorders) {
    const QPalette palette = test::palette(GetParam());
    for (const auto surface : {Theme::Surface::Card, Theme::Surface::Banner}) {
        EXPECT_EQ(
            Theme::borderColor(surface, palette) == palette.color(QPalette::WindowText),
            isHighContrast(GetParam()));
        EXPECT_EQ(
            Theme::color(surface, palette) == palette.color(QPalette::Window),
            isHighContrast(GetParam()));
    }
}

TEST_P(ThemePaletteTest, EveryTextIsReadableInAList) {
    const QPalette palette = test::palette(GetParam());
    for (const Theme::Role role : roles) {
        const QColor color = Theme::colorOnBase(role, palette);
        EXPECT_GE(
            Theme::contrast(color, palette.color(QPalette::Base)),
            isHighContrast(GetParam()) ? 7 : 4.5)
            << "role " << int(role);
    }
}

TEST_P(ThemePaletteTest, SecondaryTextIsFainterThanPrimary) {
    const QPalette palette = test::palette(GetParam());
    EXPECT_LT(
        leastContrast(Theme::Role::Secondary, palette),
        leastContrast(Theme::Role::Primary, palette));
}

TEST_P(ThemePaletteTest, ColoursStayDistinguishable) {
    const QPalette palette = test::palette(GetParam());
    for (const Theme::Role first : roles) {
        for (const Theme::Role second : roles) {
            EXPECT_TRUE(
                first == second || Theme::color(first, palette) != Theme::color(second, palette))
                << int(first) << " and " << int(second);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Palettes, ThemePaletteTest, testing::ValuesIn(test::allPalettes), test::nameOfPalette);

TEST(ThemeTest, BlackOnWhiteListsDoNotMakeAPaletteHighContrast) {
    const QPalette palette = test::palette(test::Palette::QtDefault);
    const QColor base = palette.color(QPalette::Base);
    ASSERT_NEAR(Theme::contrast(palette.color(QPalette::Text), base), 21, 1e-9);
    for (const Theme::Role role :
         {Theme::Role::Red, Theme::Role::Orange, Theme::Role::Green, Theme::Role::Blue}) {
        const QColor color = Theme::colorOnBase(role, palette);
        EXPECT_GE(Theme::contrast(color, base), 4.5) << "role " << int(role);
        EXPECT_LT(Theme::contrast(color, base), 7) << "role " << int(role);
    }
}

TEST(ThemeTest, HighContrastAppliesToListsThatAreNotPureWhite) {
    QPalette palette = test::palette(test::Palette::HighContrastLight);
    const QColor base(0xf4, 0xf4, 0xe8);
    palette.setColor(QPalette::Base, base);
    for (const Theme::Role role : roles) {
        EXPECT_GE(Theme::contrast(Theme::colorOnBase(role, palette), base), 7)
            << "role " << int(role);
    }
}

TEST(ThemeTest, KeepsATextColourThatCannotBeImproved) {
    QPalette palette;
    palette.setColor(QPalette::Window, QColor(0x80, 0x80, 0x80));
    palette.setColor(QPalette::WindowText, QColor(0x90, 0x90, 0x90));
    EXPECT_EQ(Theme::color(Theme::Role::Red, palette), QColor(0x90, 0x90, 0x90));
}

TEST(ThemeTest, FontsFollowTheApplicationFont) {
    const QFont before = QApplication::font();
    QFont larger = before;
    larger.setPointSizeF(before.pointSizeF() * 1.5);
    for (const auto style :
         {Theme::TextStyle::Title,
          Theme::TextStyle::Headline,
          Theme::TextStyle::Body,
          Theme::TextStyle::Callout,
          Theme::TextStyle::Caption,
          Theme::TextStyle::Monospaced}) {
        const double size = Theme::font(style).pointSizeF();
        QApplication::setFont(larger);
        EXPECT_NEAR(Theme::font(style).pointSizeF(), size * 1.5, 0.01);
        QApplication::setFont(before);
    }
}

TEST(ThemeTest, FontsFollowAFontWithAPixelSize) {
    const QFont before = QApplication::font();
    QFont inPixels = before;
    inPixels.setPixelSize(20);
    QApplication::setFont(inPixels);
    EXPECT_EQ(Theme::font(Theme::TextStyle::Title).pixelSize(), 27);
    EXPECT_EQ(Theme::font(Theme::TextStyle::Monospaced).pixelSize(), 19);
    QApplication::setFont(before);
}

} // namespace
} // namespace orvel
