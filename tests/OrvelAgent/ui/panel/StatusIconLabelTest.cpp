// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/StatusIconLabel.h"

#include <QIcon>

#include <gtest/gtest.h>

namespace orvel {
namespace {

TEST(StatusIconLabelTest, EveryStatusHasItsSymbol) {
    EXPECT_EQ(StatusIconLabel::symbol(StatusIcon::Brand), Symbol::StatusIcon);
    EXPECT_EQ(StatusIconLabel::symbol(StatusIcon::BrandAlert), Symbol::StatusIconAlert);
    EXPECT_EQ(StatusIconLabel::symbol(StatusIcon::Attention), Symbol::ExclamationMarkTriangleFill);
    EXPECT_EQ(StatusIconLabel::symbol(StatusIcon::Scanning), Symbol::ArrowTriangle2CirclePath);
    EXPECT_EQ(StatusIconLabel::symbol(StatusIcon::Paused), Symbol::PauseCircle);
}

TEST(StatusIconLabelTest, TheTrayIconHasTheSizesOfPanels) {
    const QIcon icon = StatusIconLabel::icon(StatusIcon::Brand);
    for (const int size : {16, 22, 24, 32, 48}) {
        EXPECT_TRUE(icon.availableSizes().contains(QSize(size, size))) << size;
    }
}

} // namespace
} // namespace orvel
