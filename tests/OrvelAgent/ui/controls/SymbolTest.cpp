// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Symbol.h"

#include "OrvelAgent/ui/controls/Theme.h"

#include <QColor>
#include <QIcon>
#include <QImage>
#include <QPainter>
#include <QPixmap>

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

namespace orvel {
namespace {

constexpr std::array allSymbols{
    Symbol::StatusIcon,
    Symbol::StatusIconAlert,
    Symbol::ExclamationMarkTriangleFill,
    Symbol::ArrowTriangle2CirclePath,
    Symbol::PauseCircle,
    Symbol::ExclamationMarkTriangle,
    Symbol::Gear,
    Symbol::HandRaised,
    Symbol::DocOnDoc,
    Symbol::CheckMark,
    Symbol::ClockArrowCirclePath};

QImage drawn(Symbol symbol, int size, double ratio = 1) {
    return symbolPixmap(symbol, size, Qt::black, ratio).toImage();
}

/// The part of the square that the drawing covers, 0 to 1.
double coverage(const QImage& image) {
    double sum = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            sum += image.pixelColor(x, y).alphaF();
        }
    }
    return sum / (image.width() * image.height());
}

TEST(SymbolTest, EverySymbolIsDrawnAtEverySize) {
    for (const Symbol symbol : allSymbols) {
        for (const int size : {16, 22, 24, 32, 48}) {
            const double share = coverage(drawn(symbol, size));
            EXPECT_GT(share, 0.1) << int(symbol) << " at " << size;
            EXPECT_LT(share, 0.7) << int(symbol) << " at " << size;
        }
    }
}

TEST(SymbolTest, SymbolsDifferAtSixteenPixels) {
    for (const Symbol first : allSymbols) {
        for (const Symbol second : allSymbols) {
            if (first == second) {
                continue;
            }
            const QImage one = drawn(first, 16);
            const QImage other = drawn(second, 16);
            int different = 0;
            for (int y = 0; y < 16; ++y) {
                for (int x = 0; x < 16; ++x) {
                    different +=
                        std::abs(qAlpha(one.pixel(x, y)) - qAlpha(other.pixel(x, y))) > 128;
                }
            }
            EXPECT_GE(different, 16) << int(first) << " and " << int(second);
        }
    }
}

TEST(SymbolTest, UsesOnlyTheRequestedColour) {
    const QImage image = symbolPixmap(Symbol::Gear, 32, QColor(200, 30, 40), 1).toImage();
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.alpha() == 255) {
                ASSERT_EQ(pixel, QColor(200, 30, 40));
            }
        }
    }
}

TEST(SymbolTest, HasTwiceThePixelsOnAScreenOfDoubleDensity) {
    const QPixmap pixmap = symbolPixmap(Symbol::PauseCircle, 16, Qt::black, 2);
    EXPECT_EQ(pixmap.size(), QSize(32, 32));
    EXPECT_EQ(pixmap.deviceIndependentSize(), QSizeF(16, 16));
}

TEST(SymbolTest, AnIconHasASharpPixmapForEveryRequestedSize) {
    const QIcon icon = symbolIcon(Symbol::Gear, Qt::black);
    for (const int size : {16, 22, 24, 32, 48}) {
        EXPECT_EQ(icon.pixmap(QSize(size, size), 1).size(), QSize(size, size));
        EXPECT_EQ(icon.pixmap(QSize(size, size), 2).size(), QSize(2 * size, 2 * size));
    }
}

/// Counts the pixels of the icon that contrast with the background.
int contrastingPixels(const QIcon& icon, const QColor& background) {
    QImage image(22, 22, QImage::Format_RGB32);
    image.fill(background);
    QPainter painter(&image);
    icon.paint(&painter, image.rect());
    painter.end();
    int count = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            count += Theme::contrast(image.pixelColor(x, y), background) >= 3;
        }
    }
    return count;
}

TEST(SymbolTest, ATrayIconIsVisibleOnEveryPanel) {
    for (const Symbol symbol :
         {Symbol::StatusIcon,
          Symbol::StatusIconAlert,
          Symbol::ExclamationMarkTriangleFill,
          Symbol::ArrowTriangle2CirclePath,
          Symbol::PauseCircle}) {
        for (const QColor tint : {QColor(Qt::black), QColor(Qt::white), QColor(0x40, 0x40, 0x40)}) {
            const QIcon icon = symbolTrayIcon(symbol, tint);
            for (const int gray : {0x00, 0x30, 0x60, 0x80, 0xa0, 0xd0, 0xff}) {
                EXPECT_GE(contrastingPixels(icon, QColor(gray, gray, gray)), 40)
                    << int(symbol) << " in " << tint.name().toStdString() << " on " << gray;
            }
        }
    }
}

TEST(SymbolTest, ADrawnIconStaysSquareInANonSquareRectangle) {
    for (const QIcon& icon : {symbolTrayIcon(Symbol::StatusIcon, Qt::black), applicationIcon()}) {
        EXPECT_EQ(icon.actualSize(QSize(40, 24)), QSize(24, 24));
        QImage expected(40, 24, QImage::Format_ARGB32_Premultiplied);
        expected.fill(Qt::transparent);
        QImage image = expected;
        QPainter(&expected).drawPixmap(8, 0, icon.pixmap(QSize(24, 24), 1));
        QPainter painter(&image);
        icon.paint(&painter, image.rect());
        painter.end();
        EXPECT_EQ(image, expected);
    }
}

TEST(SymbolTest, ADrawnIconOfEmptySizeIsNull) {
    EXPECT_TRUE(applicationIcon().pixmap(QSize(0, 0), 1).isNull());
}

TEST(SymbolTest, ATemplateIconIsAMaskForMenuBars) {
    const QIcon icon = symbolTemplateIcon(Symbol::StatusIcon);
    EXPECT_TRUE(icon.isMask());
    EXPECT_EQ(
        icon.pixmap(QSize(32, 32), 1).toImage(),
        symbolPixmap(Symbol::StatusIcon, 32, Qt::black, 1).toImage());
    EXPECT_FALSE(symbolTrayIcon(Symbol::StatusIcon, Qt::black).isMask());
}

} // namespace
} // namespace orvel
