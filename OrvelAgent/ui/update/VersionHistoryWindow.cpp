// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/update/VersionHistoryWindow.h"

#include "OrvelAgent/base/SourceRevision.h"
#include "OrvelAgent/ui/controls/Divider.h"
#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/Notice.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"
#include "OrvelAgent/ui/update/ReleaseSection.h"
#include "OrvelAgent/update/VersionHistoryLoading.h"
#include "platform/Bundle.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QScrollArea>
#include <QVBoxLayout>

#include <string>

namespace orvel {

namespace {

QWidget* makeHeader(const std::string& version, const std::string& build) {
    auto* title = new SelectableLabel(
        Theme::TextStyle::Title, Theme::Role::Primary, VersionHistoryWindow::tr("Orvel Agent"));
    title->setObjectName(QStringLiteral("title"));
    auto* installed = new SelectableLabel(
        Theme::TextStyle::Callout,
        Theme::Role::Primary,
        VersionHistoryWindow::tr("Version %1 (%2)")
            .arg(QString::fromStdString(version), QString::fromStdString(build)));
    installed->setObjectName(QStringLiteral("installedVersion"));
    const QString revisionText = QString::fromUtf8(sourceRevision());
    auto* revision =
        new SelectableLabel(Theme::TextStyle::Callout, Theme::Role::Secondary, revisionText);
    revision->setObjectName(QStringLiteral("revision"));
    revision->setAccessibleName(VersionHistoryWindow::tr("Source revision %1").arg(revisionText));

    auto* header = new QWidget;
    auto* line = makeLayout<QHBoxLayout>(nullptr, Theme::controlSpacing);
    line->addWidget(installed);
    line->addWidget(revision);
    line->addStretch();
    auto* layout = makeLayout<QVBoxLayout>(header, Theme::lineSpacing);
    layout->setContentsMargins(
        Theme::windowPadding, Theme::windowPadding, Theme::windowPadding, Theme::blockSpacing);
    layout->addWidget(title);
    layout->addLayout(line);
    return header;
}

QWidget* makeList(const tavrin::VersionHistory& history, const std::string& version) {
    auto* releases = new QWidget;
    auto* layout = makeLayout<QVBoxLayout>(releases, Theme::windowPadding, Theme::windowPadding);
    for (const tavrin::VersionHistory::Release& release : history.releases) {
        layout->addWidget(new ReleaseSection(release, release.version == version));
    }
    layout->addStretch();

    auto* list = named("releases", new QScrollArea);
    list->setAccessibleName(VersionHistoryWindow::tr("Releases"));
    list->setFrameShape(QFrame::NoFrame);
    list->setWidgetResizable(true);
    list->setWidget(releases);
    return list;
}

} // namespace

VersionHistoryWindow::VersionHistoryWindow(const Bundle& bundle, QWidget* parent)
    : QWidget(parent) {
    setObjectName(QStringLiteral("version-history"));
    setWindowTitle(tr("Orvel Agent Version History"));
    resize(460, 420);

    const std::string version = bundle.infoString("CFBundleShortVersionString").value_or("0.0.0");
    const std::string build = bundle.infoString("CFBundleVersion").value_or("0");
    auto* layout = makeLayout<QVBoxLayout>(this, 0);
    layout->addWidget(makeHeader(version, build));
    layout->addWidget(new Divider);
    const tavrin::VersionHistory history = loadVersionHistory(bundle);
    if (history.releases.empty()) {
        auto* notice = new Notice;
        notice->set(Symbol::ClockArrowCirclePath, tr("No version history in this build."));
        layout->addWidget(notice, 1);
    } else {
        layout->addWidget(makeList(history, version), 1);
    }
}

} // namespace orvel
