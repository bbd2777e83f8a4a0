// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/panel/Prompt.h"

namespace orvel {

class AppModel;

class ContactsPrompt final : public Prompt {
    Q_OBJECT

public:
    explicit ContactsPrompt(AppModel& model, QWidget* parent = nullptr);

private:
    void updateOffer();

    AppModel& model_;
    TextLabel* debuggerHint_;
    QPushButton* allow_;
};

} // namespace orvel
