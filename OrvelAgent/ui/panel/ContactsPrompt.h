// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/panel/Prompt.h"

namespace orvel {

class AppModel;

/// The panel's card for missing access to the contacts. Its button asks for access: on Linux with
/// `ContactsQuestion`.
class ContactsPrompt final : public Prompt {
    Q_OBJECT

public:
    explicit ContactsPrompt(AppModel& model, QWidget* parent = nullptr);

private:
    void updateVisibility();

    AppModel& model_;
    TextLabel* debuggerHint_;
    QPushButton* allowButton_;
};

} // namespace orvel
