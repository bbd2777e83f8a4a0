// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QPushButton>
#include <QStyleOptionButton>

namespace orvel {

/// A button with extra padding. Its text keeps its own direction. The Return key presses it only
/// while it has the focus.
class PushButton final : public QPushButton {
    Q_OBJECT

public:
    /// Double every literal ampersand in `text`.
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
            // Isolate the text, so that its final punctuation stays at its end.
            option->text = QChar(0x2068) + option->text + QChar(0x2069);
        }
    }
};

} // namespace orvel
