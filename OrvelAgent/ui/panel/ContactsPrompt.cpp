// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/ContactsPrompt.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/ui/controls/TextLabel.h"

#include <QPushButton>

namespace orvel {

ContactsPrompt::ContactsPrompt(AppModel& model, QWidget* parent)
    : Prompt(
          tr("Contacts access needed"),
          tr("Your contacts link phone numbers to the people your assistant already knows. Without "
             "it, almost no conversations can be matched."),
          parent),
      model_(model),
      debuggerHint_(
          addText(tr("Running under the Xcode debugger — macOS will not show permission prompts. "
                     "Quit this run and open the app from Finder."))),
      allowButton_(addButton(tr("Allow access…"))) {
    setObjectName(QStringLiteral("contactsPrompt"));
    debuggerHint_->setObjectName(QStringLiteral("debuggerHint"));
    allowButton_->setObjectName(QStringLiteral("allowAccess"));
    connect(allowButton_, &QPushButton::clicked, &model_, [&model] {
        static_cast<void>(model.requestContactsAccess());
    });
    addSettingsButton(model_, Workspace::SettingsPane::Contacts);
    addText(tr("Already granted it in System Settings? Orvel Agent only sees the change after a "
               "restart."))
        ->setObjectName(QStringLiteral("restartNote"));
    QPushButton* reopen = addButton(tr("Quit && Reopen"));
    reopen->setObjectName(QStringLiteral("quitAndReopen"));
    connect(reopen, &QPushButton::clicked, &model_, &AppModel::relaunch);
    connect(&model_, &AppModel::changed, this, &ContactsPrompt::updateVisibility);
    updateVisibility();
}

void ContactsPrompt::updateVisibility() {
    const bool isDebugged = model_.isDebuggerAttached();
    debuggerHint_->setVisible(isDebugged);
    allowButton_->setVisible(!isDebugged);
}

} // namespace orvel
