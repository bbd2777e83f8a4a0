// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/settings/SettingsView.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/base/SourceRevision.h"
#include "OrvelAgent/ui/controls/CheckBox.h"
#include "OrvelAgent/ui/controls/Divider.h"
#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/Picker.h"
#include "OrvelAgent/ui/controls/PushButton.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"
#include "OrvelAgent/ui/controls/Symbol.h"
#include "OrvelAgent/ui/controls/Theme.h"

#include <QEvent>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QStringList>
#include <QTabBar>
#include <QTabWidget>
#include <QVBoxLayout>

#include <algorithm>

namespace orvel {

namespace {

constexpr QSize contentSize(460, 320);

enum Tab { General, Privacy };

SelectableLabel* makeCaption(const QString& text, Theme::Role role, const char* name) {
    auto* caption = named(name, new SelectableLabel(Theme::TextStyle::Caption, role, text));
    caption->setWordWrap(true);
    return caption;
}

template <typename Choice>
void addChoice(QComboBox* picker, const QString& text, Choice choice) {
    picker->addItem(text, static_cast<int>(choice));
}

template <typename Choice>
Choice choiceAt(const QComboBox* picker, int index) {
    return static_cast<Choice>(picker->itemData(index).toInt());
}

template <typename Choice>
void choose(QComboBox* picker, Choice choice) {
    picker->setCurrentIndex(picker->findData(static_cast<int>(choice)));
}

/// A picker with its label above it and the explanation below.
QLayout* makeChoice(const QString& name, QComboBox* picker, const QString& explanation) {
    auto* label = new QLabel(name);
    label->setTextFormat(Qt::PlainText);
    label->setBuddy(picker);
    picker->setAccessibleDescription(explanation);
    auto* block = makeLayout<QVBoxLayout>(nullptr, Theme::lineSpacing);
    block->addWidget(label, 0, Qt::AlignLeading);
    block->addWidget(picker);
    block->addWidget(makeCaption(explanation, Theme::Role::Secondary, "explanation"));
    return block;
}

QVBoxLayout* makePageLayout(QWidget* page) {
    auto* layout = makeLayout<QVBoxLayout>(page, Theme::blockSpacing);
    layout->setContentsMargins(
        Theme::windowPadding, Theme::blockSpacing, Theme::windowPadding, Theme::blockSpacing);
    return layout;
}

} // namespace

SettingsView::SettingsView(AppModel& model, const Bundle& bundle, QWidget* parent)
    : QWidget(parent),
      model_(model),
      tabs_(named("tabs", new QTabWidget)),
      startAtLogin_(named("startAtLogin", new CheckBox(tr("&Start at login")))),
      checksAutomatically_(
          named("checksAutomatically", new CheckBox(tr("Check for updates &automatically")))),
      checkForUpdates_(named("checkForUpdates", new PushButton)),
      mode_(named("mode", new Picker)),
      scope_(named("scope", new Picker)),
      rescanNote_(makeCaption(
          tr("The next scan starts from the beginning."), Theme::Role::Secondary, "rescanNote")),
      error_(makeCaption({}, Theme::Role::Red, "settingsError")) {
    setObjectName(QStringLiteral("settings"));
    tabs_->setDocumentMode(true);
    tabs_->addTab(makeGeneralTab(bundle), tr("General"));
    tabs_->addTab(makePrivacyTab(), tr("Privacy"));
    error_->setContentsMargins(Theme::windowPadding, 0, Theme::windowPadding, Theme::blockSpacing);

    auto* layout = makeLayout<QVBoxLayout>(this, 0);
    layout->addWidget(tabs_, 1);
    layout->addWidget(error_);

    connect(&model_, &AppModel::changed, this, &SettingsView::updateContent);
    updateIcons();
    updateContent();
    updateSize();
}

QWidget* SettingsView::makeGeneralTab(const Bundle& bundle) {
    connect(startAtLogin_, &QCheckBox::clicked, &model_, &AppModel::setStartAtLogin);

    const auto value = [](const QString& text, const char* name) {
        auto* label =
            named(name, new SelectableLabel(Theme::TextStyle::Body, Theme::Role::Primary, text));
        label->setFocusPolicy(Qt::StrongFocus);
        return label;
    };
    const std::string version = bundle.infoString("CFBundleShortVersionString").value_or("0.0.0");
    const std::string build = bundle.infoString("CFBundleVersion").value_or("0");
    auto* values = new QFormLayout;
    values->setContentsMargins(0, 0, 0, 0);
    values->setHorizontalSpacing(Theme::windowPadding);
    values->setVerticalSpacing(Theme::lineSpacing);
    values->addRow(tr("Version"), value(QString::fromStdString(version), "version"));
    values->addRow(
        tr("Build"),
        value(
            QStringLiteral("%1 (%2)").arg(
                QString::fromStdString(build), QString::fromUtf8(sourceRevision())),
            "build"));

    auto* activityLog = named("activityLog", new PushButton(tr("Open activity &log…")));
    connect(activityLog, &QPushButton::clicked, this, &SettingsView::activityLogRequested);
    auto* versionHistory = named("versionHistory", new PushButton(tr("&Version History…")));
    connect(versionHistory, &QPushButton::clicked, this, &SettingsView::versionHistoryRequested);
    auto* windows = makeLayout<QHBoxLayout>(nullptr, Theme::controlSpacing);
    windows->addWidget(activityLog);
    windows->addWidget(versionHistory);
    windows->addStretch();

    connect(checksAutomatically_, &QCheckBox::clicked, this, &SettingsView::setChecksAutomatically);
    connect(checkForUpdates_, &QPushButton::clicked, this, &SettingsView::checkForUpdates);

    auto* page = new QWidget;
    auto* layout = makePageLayout(page);
    layout->addWidget(startAtLogin_);
    layout->addLayout(values);
    layout->addLayout(windows);
    layout->addWidget(new Divider);
    layout->addWidget(checksAutomatically_);
    layout->addWidget(checkForUpdates_, 0, Qt::AlignLeading);
    if (const auto& reason = model_.updater().configurationError()) {
        layout->addWidget(makeCaption(
            QString::fromStdString(*reason), Theme::Role::Orange, "configurationError"));
    }
    layout->addStretch();
    return page;
}

QWidget* SettingsView::makePrivacyTab() {
    using tavrin::CollectionMode;
    using tavrin::ThreadScope;
    addChoice(mode_, tr("Timing only — no message text"), CollectionMode::MetadataOnly);
    addChoice(mode_, tr("Timing and message text"), CollectionMode::WithBodies);
    connect(mode_, &QComboBox::activated, this, [this](int index) {
        model_.setMode(choiceAt<CollectionMode>(mode_, index));
    });
    addChoice(
        scope_, tr("Only with people my assistant already knows"), ThreadScope::KnownContactsOnly);
    addChoice(
        scope_, tr("All conversations, including personal and family"), ThreadScope::AllThreads);
    connect(scope_, &QComboBox::activated, this, [this](int index) {
        model_.setScope(choiceAt<ThreadScope>(scope_, index));
    });

    auto* rescan = named("rescan", new PushButton(tr("&Re-scan from the beginning")));
    const QString rescanExplanation =
        tr("A change here applies to new messages. Re-scan to apply it to earlier ones too. It is "
           "safe: messages already sent are recognized and never duplicated.");
    rescan->setAccessibleDescription(rescanExplanation);
    connect(rescan, &QPushButton::clicked, this, [this] {
        isRescanNoted_ = true;
        static_cast<void>(model_.rescanFromBeginning());
        updateContent();
    });
    // Reserve its space, so that showing it does not move other controls under the pointer.
    QSizePolicy policy = rescanNote_->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    rescanNote_->setSizePolicy(policy);
    auto* rescanLine = makeLayout<QHBoxLayout>(nullptr, Theme::controlSpacing);
    rescanLine->addWidget(rescan);
    rescanLine->addWidget(rescanNote_, 1);
    auto* rescanBlock = makeLayout<QVBoxLayout>(nullptr, Theme::lineSpacing);
    rescanBlock->addLayout(rescanLine);
    rescanBlock->addWidget(makeCaption(rescanExplanation, Theme::Role::Secondary, "explanation"));

    auto* page = new QWidget;
    auto* layout = makePageLayout(page);
    layout->addLayout(makeChoice(
        tr("&Collect"),
        mode_,
        tr("Message text lets your assistant use what was actually discussed, not just who you "
           "spoke to and when. Choose timing only to send no text at all.")));
    layout->addLayout(makeChoice(
        tr("C&onversations"),
        scope_,
        tr("A conversation is included when someone in it has a phone number or email your "
           "assistant already knows. A number also counts when its card in Contacts has an email "
           "your assistant knows. A group chat is included if anyone in it is. Both choices here "
           "are kept across restarts and updates.")));
    layout->addLayout(rescanBlock);
    layout->addStretch();
    return page;
}

bool SettingsView::event(QEvent* event) {
    const bool isHandled = QWidget::event(event);
    if (event->type() == QEvent::LayoutRequest) {
        updateSize();
    } else if (event->type() == QEvent::PaletteChange) {
        updateIcons();
    }
    return isHandled;
}

void SettingsView::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    isRescanNoted_ = false;
    updateContent();
}

void SettingsView::updateContent() {
    startAtLogin_->setChecked(model_.startAtLogin());
    choose(mode_, model_.mode());
    choose(scope_, model_.scope());

    const UpdaterService& updater = model_.updater();
    const SoftwareUpdater* controller = updater.controller();
    checksAutomatically_->setEnabled(controller != nullptr);
    checksAutomatically_->setChecked(
        controller != nullptr && controller->automaticallyChecksForUpdates());
    checkForUpdates_->setEnabled(controller != nullptr);
    checkForUpdates_->setText(
        updater.updateAwaitingAttention() ? tr("&Install available update…")
                                          : tr("Check for &updates…"));

    QStringList errors;
    for (const auto& error :
         {model_.settingsError(), model_.rescanError(), updater.settingsError()}) {
        if (error) {
            errors.append(QString::fromStdString(*error));
        }
    }
    error_->setText(errors.join(u'\n'));
    error_->setVisible(!errors.isEmpty());
    rescanNote_->setVisible(isRescanNoted_ && !model_.rescanError());
}

void SettingsView::updateIcons() {
    const QColor color = palette().color(QPalette::WindowText);
    tabs_->setTabIcon(General, symbolIcon(Symbol::Gear, color));
    tabs_->setTabIcon(Privacy, symbolIcon(Symbol::HandRaised, color));
}

void SettingsView::updateSize() {
    const int width = std::max(contentSize.width(), minimumSizeHint().width());
    int height = 0;
    for (int index = 0; index < tabs_->count(); ++index) {
        // Hidden pages count too, so that switching tabs does not resize the window.
        const QWidget* page = tabs_->widget(index);
        height = std::max(
            height,
            page->hasHeightForWidth() ? page->heightForWidth(width) : page->sizeHint().height());
    }
    height += tabs_->tabBar()->sizeHint().height();
    if (!error_->isHidden()) {
        height += error_->heightForWidth(width);
    }
    setFixedSize(width, std::max(contentSize.height(), height));
}

void SettingsView::setChecksAutomatically(bool isAutomatic) {
    model_.updater().controller()->setAutomaticallyChecksForUpdates(isAutomatic);
    updateContent();
}

void SettingsView::checkForUpdates() {
    model_.activate();
    model_.updater().controller()->checkForUpdates();
}

} // namespace orvel
