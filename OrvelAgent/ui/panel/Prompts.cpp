// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/Prompts.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/ui/controls/TextLabel.h"
#include "OrvelAgent/ui/panel/Prompt.h"

#include <QPushButton>

namespace orvel {

namespace {

QString withoutScheme(const std::string& webBaseURL) {
    QString host = QString::fromStdString(webBaseURL);
    for (const QString& scheme : {QStringLiteral("https://"), QStringLiteral("http://")}) {
        if (host.startsWith(scheme)) {
            return host.mid(scheme.size());
        }
    }
    return host;
}

} // namespace

Prompt* makeFullDiskAccessPrompt(AppModel& model) {
    auto* prompt = new Prompt(
        Prompt::tr("Full Disk Access needed"),
        Prompt::tr("macOS keeps Messages behind Full Disk Access. Grant it in System Settings, "
                   "then relaunch."));
    prompt->setObjectName(QStringLiteral("fullDiskAccessPrompt"));
    prompt->addSettingsButton(model, Workspace::SettingsPane::FullDiskAccess);
    QPushButton* recheck = prompt->addButton("recheck", Prompt::tr("Re-check"));
    QObject::connect(recheck, &QPushButton::clicked, &model, [&model] {
        static_cast<void>(model.refreshPermissions());
    });
    return prompt;
}

Prompt* makeContactsPrompt(AppModel& model) {
    auto* prompt = new Prompt(
        Prompt::tr("Contacts access needed"),
        Prompt::tr("Your contacts link phone numbers to the people your assistant already "
                   "knows. Without it, almost no conversations can be matched."));
    prompt->setObjectName(QStringLiteral("contactsPrompt"));
    TextLabel* debuggerHint = prompt->addText(
        "debuggerHint",
        Prompt::tr("Running under the Xcode debugger — macOS will not show permission prompts. "
                   "Quit this run and open the app from Finder."));
    QPushButton* allow = prompt->addButton("allowAccess", Prompt::tr("Allow access…"));
    QObject::connect(allow, &QPushButton::clicked, &model, [&model] {
        static_cast<void>(model.requestContactsAccess());
    });
    prompt->addSettingsButton(model, Workspace::SettingsPane::Contacts);
    prompt->addText(
        "restartNote",
        Prompt::tr("Already granted it in System Settings? Orvel Agent only sees the change after "
                   "a restart."));
    QPushButton* reopen = prompt->addButton("quitAndReopen", Prompt::tr("Quit && Reopen"));
    QObject::connect(reopen, &QPushButton::clicked, &model, &AppModel::relaunch);
    const auto update = [&model, debuggerHint, allow] {
        const bool isDebugged = model.isDebuggerAttached();
        debuggerHint->setVisible(isDebugged);
        allow->setVisible(!isDebugged);
    };
    QObject::connect(&model, &AppModel::changed, prompt, update);
    update();
    return prompt;
}

Prompt* makeNoAccountPrompt(AppModel& model) {
    const Configuration& configuration = model.configuration();
    auto* prompt = new Prompt(
        Prompt::tr("No account yet"),
        Prompt::tr("That sign-in has no %1 account.")
                .arg(QString::fromStdString(configuration.displayName())) +
            u' ' + Prompt::tr("Create one on the website, then sign in here."));
    prompt->setObjectName(QStringLiteral("noAccountPrompt"));
    QString host = withoutScheme(configuration.webBaseURL());
    host.replace(u'&', QStringLiteral("&&"));
    QPushButton* open = prompt->addButton("openWebsite", Prompt::tr("Open %1").arg(host));
    QObject::connect(open, &QPushButton::clicked, &model.auth(), &AuthService::openAccountPage);
    return prompt;
}

} // namespace orvel
