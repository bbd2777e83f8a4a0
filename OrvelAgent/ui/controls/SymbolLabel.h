// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Symbol.h"
#include "OrvelAgent/ui/controls/Theme.h"

#include <QLabel>

namespace orvel {

/// A symbol in a theme colour, as high as a line of text in that style.
class SymbolLabel final : public QLabel {
    Q_OBJECT

public:
    SymbolLabel(Symbol symbol, Theme::TextStyle style, Theme::Role role, QWidget* parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    Symbol symbol_;
    Theme::TextStyle style_;
    Theme::Role role_;
};

} // namespace orvel
