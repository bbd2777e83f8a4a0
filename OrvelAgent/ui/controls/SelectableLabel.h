// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Theme.h"

#include <QLabel>

namespace orvel {

/// Plain text that can be selected with mouse and keyboard. Follows changes of the desktop's font
/// and colours.
class SelectableLabel final : public QLabel {
    Q_OBJECT

public:
    explicit SelectableLabel(
        Theme::TextStyle style,
        Theme::Role role = Theme::Role::Primary,
        const QString& text = {},
        QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void updateStyle();

    const Theme::TextStyle style_;
    const Theme::Role role_;
};

} // namespace orvel
