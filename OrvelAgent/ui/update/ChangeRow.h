// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/VersionHistory.h"

#include <QWidget>

namespace orvel {

class Badge;

/// One change of a release: its label as a badge, and its text.
class ChangeRow final : public QWidget {
    Q_OBJECT

public:
    /// Wider only where the label would not fit.
    static constexpr int badgeWidth = 46;

    explicit ChangeRow(const tavrin::VersionHistory::Change& change, QWidget* parent = nullptr);

protected:
    void changeEvent(QEvent* event) override;

private:
    void updateLook();

    Badge* badge_;
};

} // namespace orvel
