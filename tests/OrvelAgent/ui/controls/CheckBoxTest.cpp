// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/CheckBox.h"

#include "tests/support/widgets/Palettes.h"

#include <QImage>
#include <QStyle>
#include <QStyleOptionButton>

#include <gtest/gtest.h>

#include <algorithm>

namespace orvel {
namespace {

class CheckBoxPaletteTest : public testing::TestWithParam<test::Palette> {};

TEST_P(CheckBoxPaletteTest, TheBoxIsVisibleOnTheWindow) {
    CheckBox checkBox(QStringLiteral("Problems only"));
    checkBox.setPalette(test::palette(GetParam()));
    checkBox.resize(checkBox.sizeHint());
    const QImage image = checkBox.grab().toImage();
    QStyleOptionButton option;
    option.initFrom(&checkBox);
    const QRect box =
        checkBox.style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, &checkBox);
    const QColor window = checkBox.palette().color(QPalette::Window);
    // Scan a row of pixels that crosses the left edge of the box.
    double highestContrast = 0;
    for (int x = box.left(); x < box.center().x(); ++x) {
        highestContrast = std::max(
            highestContrast, Theme::contrast(image.pixelColor(x, box.center().y()), window));
    }
    // The minimum of WCAG for controls.
    EXPECT_GE(highestContrast, 3);
}

INSTANTIATE_TEST_SUITE_P(
    Palettes, CheckBoxPaletteTest, testing::ValuesIn(test::allPalettes), test::nameOfPalette);

} // namespace
} // namespace orvel
