// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Card.h"

namespace orvel {

class TextLabel;

class BlockedBanner final : public Card {
    Q_OBJECT

public:
    explicit BlockedBanner(QWidget* parent = nullptr);

    void setReason(const QString& reason);

private:
    TextLabel* reason_;
};

} // namespace orvel
