// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tests/support/widgets/Palettes.h"

#include <QApplication>
#include <QFont>
#include <QPalette>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel::test {

/// Desktop settings that affect all windows.
struct Look {
    Palette palette = Palette::Light;
    int textPercent = 100;
    Qt::LayoutDirection direction = Qt::LeftToRight;
};

/// Each palette with normal and with large text, in both directions.
inline std::vector<Look> allLooks() {
    std::vector<Look> looks;
    for (const Palette palette : {Palette::Light, Palette::Dark}) {
        for (const int percent : {100, 150}) {
            for (const auto direction : {Qt::LeftToRight, Qt::RightToLeft}) {
                looks.push_back({palette, percent, direction});
            }
        }
    }
    return looks;
}

inline std::string nameOfLook(const testing::TestParamInfo<Look>& info) {
    return name(info.param.palette) + std::to_string(info.param.textPercent) +
           (info.param.direction == Qt::LeftToRight ? "LeftToRight" : "RightToLeft");
}

/// Applies the settings to the application until it is destroyed.
class DesktopLook final {
public:
    explicit DesktopLook(const Look& look)
        : palette_(QApplication::palette()), font_(QApplication::font()) {
        QFont font = font_;
        font.setPointSizeF(font.pointSizeF() * look.textPercent / 100);
        QApplication::setFont(font);
        QApplication::setPalette(palette(look.palette));
        QApplication::setLayoutDirection(look.direction);
    }
    ~DesktopLook() {
        QApplication::setLayoutDirection(Qt::LeftToRight);
        QApplication::setPalette(palette_);
        QApplication::setFont(font_);
    }
    DesktopLook(const DesktopLook&) = delete;
    DesktopLook& operator=(const DesktopLook&) = delete;

private:
    const QPalette palette_;
    const QFont font_;
};

} // namespace orvel::test
