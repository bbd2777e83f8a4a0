// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/NoAccountPrompt.h"

#include "OrvelAgent/app/AppModel.h"

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

NoAccountPrompt::NoAccountPrompt(AppModel& model, QWidget* parent)
    : Prompt(
          tr("No account yet"),
          tr("That sign-in has no %1 account.")
                  .arg(QString::fromStdString(model.configuration().displayName())) +
              u' ' + tr("Create one on the website, then sign in here."),
          parent) {
    setObjectName(QStringLiteral("noAccountPrompt"));
    const QString host = withoutScheme(model.configuration().webBaseURL());
    QPushButton* open =
        addButton(tr("Open %1").arg(QString(host).replace(u'&', QStringLiteral("&&"))));
    open->setObjectName(QStringLiteral("openWebsite"));
    connect(open, &QPushButton::clicked, &model.auth(), &AuthService::openAccountPage);
}

} // namespace orvel
