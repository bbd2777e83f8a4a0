// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/PanelPlacement.h"

#include <gtest/gtest.h>

#include <optional>

namespace orvel {

namespace {

constexpr QSize panel(340, 400);
/// Of a screen of 1280 by 800, apart from a bar of 30 on one side.
const QRect belowBar(0, 30, 1280, 770);
const QRect aboveBar(0, 0, 1280, 770);
const QRect rightOfBar(30, 0, 1250, 800);

} // namespace

TEST(PanelPlacementTest, HangsBelowABarAtTheTop) {
    EXPECT_EQ(panelPlace(QPoint(600, 12), belowBar, panel), QPoint(430, 30));
}

TEST(PanelPlacementTest, LeavesAnIconFreeOnABarThatReservesNoRoom) {
    EXPECT_EQ(panelPlace(QPoint(600, 12), QRect(0, 0, 1280, 800), panel), QPoint(430, 28));
    EXPECT_EQ(panelPlace(QPoint(600, 788), QRect(0, 0, 1280, 800), panel), QPoint(430, 372));
}

TEST(PanelPlacementTest, StandsOnABarAtTheBottom) {
    EXPECT_EQ(panelPlace(QPoint(600, 790), aboveBar, panel), QPoint(430, 370));
}

TEST(PanelPlacementTest, StaysInsideBesideTheEdges) {
    EXPECT_EQ(panelPlace(QPoint(1279, 0), belowBar, panel), QPoint(940, 30));
    EXPECT_EQ(panelPlace(QPoint(0, 799), aboveBar, panel), QPoint(0, 370));
    EXPECT_EQ(panelPlace(QPoint(10, 700), rightOfBar, panel), QPoint(30, 284));
}

TEST(PanelPlacementTest, StaysOnASecondScreen) {
    const QRect second(1280, 0, 1000, 700);
    EXPECT_EQ(panelPlace(QPoint(2279, 699), second, panel), QPoint(1940, 283));
}

TEST(PanelPlacementTest, ShowsTheBeginningOfAPanelLargerThanTheScreen) {
    const QRect small(0, 30, 300, 200);
    EXPECT_EQ(panelPlace(QPoint(290, 10), small, panel), small.topLeft());
    EXPECT_EQ(panelPlace(QPoint(290, 229), small, panel), small.topLeft());
}

TEST(PanelPlacementTest, StandsInTheMiddleWithoutAClick) {
    EXPECT_EQ(panelPlace(std::nullopt, QRect(0, 0, 1000, 800), panel), QPoint(329, 199));
}

} // namespace orvel
