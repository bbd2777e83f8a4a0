// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/update/ReleaseSection.h"

#include "OrvelAgent/ui/controls/Badge.h"
#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"
#include "OrvelAgent/ui/update/ChangeRow.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

namespace orvel {

ReleaseSection::ReleaseSection(
    const tavrin::VersionHistory::Release& release, bool isInstalled, QWidget* parent)
    : QWidget(parent) {
    setAccessibleName(tr("Version %1").arg(QString::fromStdString(release.version)));
    auto* version = new SelectableLabel(
        Theme::TextStyle::Headline, Theme::Role::Primary, QString::fromStdString(release.version));
    version->setObjectName(QStringLiteral("version"));
    auto* date = new SelectableLabel(
        Theme::TextStyle::Callout, Theme::Role::Secondary, QString::fromStdString(release.date));
    date->setObjectName(QStringLiteral("date"));

    auto* heading = makeLayout<QHBoxLayout>(nullptr, Theme::controlSpacing);
    heading->addWidget(version);
    heading->addWidget(date);
    if (isInstalled) {
        auto* badge = new Badge(tr("installed"), Theme::Role::Secondary, Badge::Shape::Outlined);
        badge->setObjectName(QStringLiteral("installed"));
        heading->addWidget(badge);
    }
    heading->addStretch();

    auto* layout = makeLayout<QVBoxLayout>(this, Theme::lineSpacing);
    layout->addLayout(heading);
    for (const tavrin::VersionHistory::Change& change : release.changes) {
        layout->addWidget(new ChangeRow(change));
    }
    if (release.changes.empty()) {
        auto* text = new SelectableLabel(
            Theme::TextStyle::Body, Theme::Role::Secondary, tr("Maintenance release."));
        text->setObjectName(QStringLiteral("maintenance"));
        layout->addWidget(text);
    }
}

} // namespace orvel
