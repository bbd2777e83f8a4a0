// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QPushButton>

namespace orvel {

/// A button without a border. Its text is underlined while the pointer is over it.
class TextButton final : public QPushButton {
    Q_OBJECT

public:
    TextButton(
        const QString& text, Theme::TextStyle style, Theme::Role role, QWidget* parent = nullptr);

    [[nodiscard]] bool isUnderlined() const { return isHovered_; }

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void setHovered(bool isHovered);

    Theme::TextStyle style_;
    Theme::Role role_;
    bool isHovered_ = false;
};

} // namespace orvel
