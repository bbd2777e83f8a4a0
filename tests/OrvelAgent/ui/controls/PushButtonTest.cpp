// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/PushButton.h"

#include <QImage>

#include <gtest/gtest.h>

namespace orvel {
namespace {

QImage picture(const QString& text, Qt::LayoutDirection direction) {
    PushButton button(text);
    button.setLayoutDirection(direction);
    button.resize(button.sizeHint());
    return button.grab().toImage();
}

TEST(PushButtonTest, TextKeepsItsDirectionOnEveryDesktop) {
    for (const QString& text : {QStringLiteral("Settings…"), QStringLiteral("הגדרות…")}) {
        const QImage leftToRight = picture(text, Qt::LeftToRight);
        EXPECT_EQ(leftToRight, picture(text, Qt::RightToLeft)) << text.toStdString();
    }
}

} // namespace
} // namespace orvel
