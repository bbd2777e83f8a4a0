// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QWidget>

namespace orvel {

/// A word in a small rounded box.
class Badge final : public QWidget {
    Q_OBJECT

public:
    enum class Shape { Filled, Outlined };

    Badge(QString text, Theme::Role role, Shape shape, QWidget* parent = nullptr);

    /// The width of a badge with that text at the current font size.
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
