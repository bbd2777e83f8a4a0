// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QCheckBox>
#include <QStyleOptionButton>

namespace orvel {

/// The style's check box, with a box that can be seen on any window.
class CheckBox final : public QCheckBox {
    Q_OBJECT

public:
    explicit CheckBox(const QString& text, QWidget* parent = nullptr) : QCheckBox(text, parent) {}

protected:
    void initStyleOption(QStyleOptionButton* option) const override {
        QCheckBox::initStyleOption(option);
        // Styles take a shade of the window's colour for the line of the box, which nobody sees on
        // a dark window.
        option->palette.setColor(
            QPalette::Window, Theme::color(Theme::Role::Secondary, option->palette));
    }
};

} // namespace orvel
