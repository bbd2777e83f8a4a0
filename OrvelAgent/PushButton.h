// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/Theme.h"

#include <QPushButton>

namespace orvel {

/// The style's button, with room beside its text. The Return key presses it only when it has the
/// focus.
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
};

} // namespace orvel
