// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

namespace orvel {

class Bundle;

/// Shows the releases in the bundle's change log. The bundle is read only by the constructor.
class VersionHistoryWindow final : public QWidget {
    Q_OBJECT

public:
    explicit VersionHistoryWindow(const Bundle& bundle, QWidget* parent = nullptr);
};

} // namespace orvel
