// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/panel/Prompt.h"

namespace orvel {

class AppModel;

class FullDiskAccessPrompt final : public Prompt {
    Q_OBJECT

public:
    explicit FullDiskAccessPrompt(AppModel& model, QWidget* parent = nullptr);
};

} // namespace orvel
