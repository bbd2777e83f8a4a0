// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

namespace orvel {

class Bundle;

/// What changed in this version and in earlier ones, as the bundle's change log tells it. Reads the
/// bundle once.
class VersionHistoryWindow final : public QWidget {
    Q_OBJECT

public:
    explicit VersionHistoryWindow(const Bundle& bundle, QWidget* parent = nullptr);
};

} // namespace orvel
