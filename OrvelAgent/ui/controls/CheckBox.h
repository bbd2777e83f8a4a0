// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QCheckBox>
#include <QStyleOptionButton>

namespace orvel {

/// A check box whose outline is visible on dark windows too.
class CheckBox final : public QCheckBox {
    Q_OBJECT

public:
    explicit CheckBox(const QString& text, QWidget* parent = nullptr) : QCheckBox(text, parent) {}

protected:
    void initStyleOption(QStyleOptionButton* option) const override {
        QCheckBox::initStyleOption(option);
        // Styles derive the outline from the window colour, which is invisible on a dark window.
        option->palette.setColor(
            QPalette::Window, Theme::color(Theme::Role::Secondary, option->palette));
    }
};

} // namespace orvel
