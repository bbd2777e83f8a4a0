// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QString>
#include <QTextEdit>

namespace orvel {

/// Plain text that can be selected with mouse and keyboard. Wraps inside a word that is longer than
/// the line.
class SelectableText final : public QTextEdit {
    Q_OBJECT

public:
    SelectableText(Theme::TextStyle style, Theme::Role role, QWidget* parent = nullptr);

    /// Setting the same text again keeps the selection.
    void setText(const QString& text);

    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSizeHint() const override;
    [[nodiscard]] int heightForWidth(int width) const override;

protected:
    void changeEvent(QEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    void updateStyle();

    const Theme::TextStyle style_;
    const Theme::Role role_;
    QString text_;
};

} // namespace orvel
