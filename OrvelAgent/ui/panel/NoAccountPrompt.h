// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/panel/Prompt.h"

namespace orvel {

class AppModel;

/// Shown after a sign-in without an account.
class NoAccountPrompt final : public Prompt {
    Q_OBJECT

public:
    explicit NoAccountPrompt(AppModel& model, QWidget* parent = nullptr);
};

} // namespace orvel
