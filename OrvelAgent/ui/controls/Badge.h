// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QWidget>

namespace orvel {

/// A word in a small coloured field.
class Badge final : public QWidget {
    Q_OBJECT

public:
    /// In that colour with the word left open, or as an outline.
    enum class Shape { Filled, Outlined };

    Badge(QString text, Theme::Role role, Shape shape, QWidget* parent = nullptr);

    /// What a badge with that word needs at the present text size.
    [[nodiscard]] static int widthOf(const QString& text);

    [[nodiscard]] const QString& text() const { return text_; }
    [[nodiscard]] QSize sizeHint() const override;

protected:
    void changeEvent(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    const QString text_;
    const Theme::Role role_;
    const Shape shape_;
};

} // namespace orvel
