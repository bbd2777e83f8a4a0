// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/FullDiskAccessPrompt.h"

#include "OrvelAgent/app/AppModel.h"

#include <QPushButton>

namespace orvel {

FullDiskAccessPrompt::FullDiskAccessPrompt(AppModel& model, QWidget* parent)
    : Prompt(
          tr("Full Disk Access needed"),
          tr("macOS keeps Messages behind Full Disk Access. Grant it in System Settings, then "
             "relaunch."),
          parent) {
    setObjectName(QStringLiteral("fullDiskAccessPrompt"));
    addSettingsButton(model, Workspace::SettingsPane::FullDiskAccess);
    QPushButton* recheck = addButton(tr("Re-check"));
    recheck->setObjectName(QStringLiteral("recheck"));
    connect(recheck, &QPushButton::clicked, &model, [&model] {
        static_cast<void>(model.refreshPermissions());
    });
}

} // namespace orvel
