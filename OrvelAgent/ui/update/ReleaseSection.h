// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/VersionHistory.h"

#include <QWidget>

namespace orvel {

/// One release of the version history, with its changes.
class ReleaseSection final : public QWidget {
    Q_OBJECT

public:
    ReleaseSection(
        const tavrin::VersionHistory::Release& release,
        bool isInstalled,
        QWidget* parent = nullptr);
};

} // namespace orvel
