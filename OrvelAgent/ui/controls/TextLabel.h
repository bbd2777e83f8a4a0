// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QLabel>

namespace orvel {

/// Plain text in the theme's font and colours. Follows changes of the desktop.
///
/// `Wrap` breaks lines, even inside a word that is longer than the line. `Elide` keeps one line:
/// text that does not fit ends in an ellipsis, and the tool tip shows it in full.
class TextLabel final : public QLabel {
    Q_OBJECT

public:
    enum class Overflow { Wrap, Elide };

    explicit TextLabel(
        Theme::TextStyle style,
        Theme::Role role = Theme::Role::Primary,
        Overflow overflow = Overflow::Wrap,
        QWidget* parent = nullptr);

    [[nodiscard]] bool isElided() const;

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;
    [[nodiscard]] int heightForWidth(int width) const override;

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    [[nodiscard]] int textWidth() const;

    Theme::TextStyle style_;
    Theme::Role role_;
    Overflow overflow_;
};

} // namespace orvel
