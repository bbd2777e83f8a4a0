// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/VersionHistory.h"

#include <QWidget>

namespace orvel {

class Badge;

/// One change of a release: the label as a badge, then the text.
class ChangeRow final : public QWidget {
    Q_OBJECT

public:
    /// In pixels. The badge is wider if its label needs it.
    static constexpr int badgeWidth = 46;

    explicit ChangeRow(const tavrin::VersionHistory::Change& change, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void updateStyle();

    Badge* badge_;
};

} // namespace orvel
