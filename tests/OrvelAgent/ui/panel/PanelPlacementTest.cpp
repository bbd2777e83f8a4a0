// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/PanelPlacement.h"

#include <gtest/gtest.h>

#include <optional>

namespace orvel {

namespace {

constexpr QSize panel(340, 400);
/// The available area of a 1280 by 800 screen with a bar of 30 pixels on one side.
const QRect belowBar(0, 30, 1280, 770);
const QRect aboveBar(0, 0, 1280, 770);
const QRect rightOfBar(30, 0, 1250, 800);

QPoint positionFor(QPoint click, const QRect& available) {
    return panelPosition(iconRect({}, click), available, panel);
}

} // namespace

TEST(PanelPlacementTest, OpensBelowAnIconOfKnownPosition) {
    const QRect icon(700, 0, 30, 24);
    EXPECT_EQ(
        panelPosition(iconRect(icon, QPoint(703, 20)), QRect(0, 24, 1280, 776), panel),
        QPoint(545, 24));
    EXPECT_EQ(
        panelPosition(iconRect(icon, std::nullopt), QRect(0, 24, 1280, 776), panel),
        QPoint(545, 24));
}

TEST(PanelPlacementTest, AClickOutsideTheReportedIconOverridesIt) {
    // Every screen has a menu bar, but the reported rectangle is on one screen only.
    const QRect icon(700, 0, 30, 24);
    EXPECT_EQ(
        panelPosition(iconRect(icon, QPoint(2000, 12)), QRect(1280, 28, 1000, 672), panel),
        QPoint(1830, 28));
}

TEST(PanelPlacementTest, OpensBelowABarAtTheTop) {
    EXPECT_EQ(positionFor(QPoint(600, 12), belowBar), QPoint(430, 30));
}

TEST(PanelPlacementTest, DoesNotCoverTheIconOnABarWithoutReservedSpace) {
    EXPECT_EQ(positionFor(QPoint(600, 12), QRect(0, 0, 1280, 800)), QPoint(430, 28));
    EXPECT_EQ(positionFor(QPoint(600, 788), QRect(0, 0, 1280, 800)), QPoint(430, 372));
}

TEST(PanelPlacementTest, OpensAboveABarAtTheBottom) {
    EXPECT_EQ(positionFor(QPoint(600, 790), aboveBar), QPoint(430, 370));
}

TEST(PanelPlacementTest, StaysInsideTheScreenEdges) {
    EXPECT_EQ(positionFor(QPoint(1279, 0), belowBar), QPoint(940, 30));
    EXPECT_EQ(positionFor(QPoint(0, 799), aboveBar), QPoint(0, 370));
    EXPECT_EQ(positionFor(QPoint(10, 700), rightOfBar), QPoint(30, 284));
}

TEST(PanelPlacementTest, StaysOnASecondScreen) {
    const QRect second(1280, 0, 1000, 700);
    EXPECT_EQ(positionFor(QPoint(2279, 699), second), QPoint(1940, 283));
}

TEST(PanelPlacementTest, ShowsTheTopLeftOfAPanelLargerThanTheScreen) {
    const QRect small(0, 30, 300, 200);
    EXPECT_EQ(positionFor(QPoint(290, 10), small), small.topLeft());
    EXPECT_EQ(positionFor(QPoint(290, 229), small), small.topLeft());
}

TEST(PanelPlacementTest, IsCentredWithoutAClick) {
    EXPECT_EQ(panelPosition(std::nullopt, QRect(0, 0, 1000, 800), panel), QPoint(329, 199));
}

} // namespace orvel
