// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QPushButton>
#include <QStyleOptionButton>

namespace orvel {

/// The style's button, with room beside its text, which runs in its own direction. The Return key
/// presses it only when it has the focus.
class PushButton final : public QPushButton {
    Q_OBJECT

public:
    /// `text` has its ampersands doubled.
    explicit PushButton(const QString& text = {}, QWidget* parent = nullptr)
        : QPushButton(text, parent) {
        setAutoDefault(false);
    }

    [[nodiscard]] QSize sizeHint() const override {
        return QPushButton::sizeHint() + QSize(2 * Theme::buttonPadding, 0);
    }
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void initStyleOption(QStyleOptionButton* option) const override {
        QPushButton::initStyleOption(option);
        if (isRightToLeft() || text().isRightToLeft()) {
            // Isolated, so that what ends the text stays at its end.
            option->text = QChar(0x2068) + option->text + QChar(0x2069);
        }
    }
};

} // namespace orvel
