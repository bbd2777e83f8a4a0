// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/MenuBarContentView.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/ui/controls/Divider.h"
#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/PushButton.h"
#include "OrvelAgent/ui/controls/SelectableText.h"
#include "OrvelAgent/ui/controls/Spinner.h"
#include "OrvelAgent/ui/controls/TextButton.h"
#include "OrvelAgent/ui/controls/TextLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"
#include "OrvelAgent/ui/controls/WrappingRow.h"
#include "OrvelAgent/ui/panel/BlockedBanner.h"
#include "OrvelAgent/ui/panel/Prompt.h"
#include "OrvelAgent/ui/panel/Prompts.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QPainter>
#include <QRegion>
#include <QScreen>
#include <QScrollBar>
#include <QShowEvent>
#include <QVBoxLayout>

#include <algorithm>

namespace orvel {

namespace {

/// Hidden layouts ignore changes. Updates them, innermost first, so that the size hint is right.
void activateLayouts(QWidget* widget) {
    for (QWidget* child : widget->findChildren<QWidget*>(Qt::FindDirectChildrenOnly)) {
        activateLayouts(child);
    }
    if (widget->layout() != nullptr) {
        widget->layout()->activate();
    }
}

} // namespace

MenuBarContentView::MenuBarContentView(AppModel& model, QWidget* parent)
    : QScrollArea(parent), model_(model), content_(new QWidget) {
    setObjectName(QStringLiteral("menuBarContent"));
    setAccessibleName(QString::fromStdString(model_.configuration().displayName()));
    setFrameShape(QFrame::NoFrame);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setFocusPolicy(Qt::NoFocus);

    auto* layout = makeLayout<QVBoxLayout>(content_, Theme::blockSpacing, Theme::windowPadding);
    layout->addWidget(makeHeader());
    banner_ = new BlockedBanner;
    layout->addWidget(banner_);
    fullDiskAccessPrompt_ = makeFullDiskAccessPrompt(model_);
    layout->addWidget(fullDiskAccessPrompt_);
    contactsPrompt_ = makeContactsPrompt(model_);
    layout->addWidget(contactsPrompt_);
    layout->addWidget(new Divider);
    layout->addWidget(makeActivity());
    layout->addWidget(makeAccount());
    layout->addWidget(makeBottomRow());
    layout->addStretch();

    connect(&model_, &AppModel::changed, this, &MenuBarContentView::updateContent);
    updateContent();

    setWidget(content_);
    setWidgetResizable(true);
    content_->installEventFilter(this);
    fitToContent();
}

QWidget* MenuBarContentView::makeHeader() {
    auto* header = new QWidget;
    auto* layout = makeLayout<QHBoxLayout>(header, Theme::controlSpacing);
    auto* title = named("displayName", new TextLabel(Theme::TextStyle::Headline));
    title->setText(QString::fromStdString(model_.configuration().displayName()));
    spinner_ = named("spinner", new Spinner);
    layout->addWidget(title, 1);
    layout->addWidget(spinner_, 0, Qt::AlignTop);
    return header;
}

QWidget* MenuBarContentView::makeActivity() {
    auto* activity = new QWidget;
    auto* layout = makeLayout<QVBoxLayout>(activity, Theme::lineSpacing);
    noScans_ = named("noScans", new TextLabel(Theme::TextStyle::Caption, Theme::Role::Secondary));
    noScans_->setText(tr("No scans yet."));
    messageCount_ = named("messageCount", new TextLabel(Theme::TextStyle::Callout));
    scanError_ =
        named("scanError", new SelectableText(Theme::TextStyle::Caption, Theme::Role::Red));
    scanError_->setAccessibleName(tr("Error of the last scan"));
    layout->addWidget(noScans_);
    layout->addWidget(messageCount_);
    layout->addWidget(scanError_);
    return activity;
}

QWidget* MenuBarContentView::makeAccount() {
    auto* block = new QWidget;
    auto* layout = makeLayout<QVBoxLayout>(block, Theme::controlSpacing);

    signInError_ =
        named("signInError", new SelectableText(Theme::TextStyle::Caption, Theme::Role::Red));
    signInError_->setAccessibleName(tr("Error of the last sign-in"));
    layout->addWidget(signInError_);

    signedOutRow_ = new QWidget;
    auto* signedOut = new WrappingRow(signedOutRow_);
    signIn_ = named("signIn", new PushButton);
    connect(signIn_, &QPushButton::clicked, this, [this] {
        static_cast<void>(model_.auth().signIn());
    });
    cancelSignIn_ = named(
        "cancelSignIn", new TextButton(tr("Cancel"), Theme::TextStyle::Callout, Theme::Role::Blue));
    cancelSignIn_->setAccessibleDescription(tr("Ends the sign-in that waits for the browser."));
    connect(cancelSignIn_, &TextButton::clicked, &model_.auth(), &AuthService::cancelSignIn);
    signedOut->addWidget(signIn_);
    signedOut->addWidget(cancelSignIn_);
    layout->addWidget(signedOutRow_);

    noAccountPrompt_ = makeNoAccountPrompt(model_);
    layout->addWidget(noAccountPrompt_);

    signedInRow_ = new QWidget;
    auto* signedIn = makeLayout<QHBoxLayout>(signedInRow_, Theme::controlSpacing);
    account_ = new TextLabel(
        Theme::TextStyle::Caption, Theme::Role::Secondary, TextLabel::Overflow::Elide);
    account_->setObjectName(QStringLiteral("account"));
    auto* signOut = named(
        "signOut", new TextButton(tr("Sign out"), Theme::TextStyle::Caption, Theme::Role::Blue));
    connect(signOut, &TextButton::clicked, &model_.auth(), &AuthService::signOut);
    signedIn->addWidget(account_, 1);
    signedIn->addWidget(signOut);
    layout->addWidget(signedInRow_);
    return block;
}

QWidget* MenuBarContentView::makeBottomRow() {
    auto* bottom = new QWidget;
    auto* layout = new WrappingRow(bottom);
    auto* version = new TextButton(
        tr("Version %1").arg(QString::fromStdString(model_.configuration().shortVersion())),
        Theme::TextStyle::Caption,
        Theme::Role::Secondary);
    version->setObjectName(QStringLiteral("version"));
    version->setToolTip(tr("What changed in this and earlier versions"));
    connect(version, &TextButton::clicked, this, [this] {
        model_.activate();
        Q_EMIT versionHistoryRequested();
    });
    auto* settings = named("settings", new PushButton(tr("Settings…")));
    connect(settings, &QPushButton::clicked, this, [this] {
        model_.activate();
        Q_EMIT settingsRequested();
    });
    auto* quit = named("quit", new PushButton(tr("Quit")));
    connect(quit, &QPushButton::clicked, this, &MenuBarContentView::quitRequested);
    layout->addWidget(version);
    layout->beginTrailing();
    layout->addWidget(settings);
    layout->addWidget(quit);
    return bottom;
}

void MenuBarContentView::updateContent() {
    const std::optional<std::string> reason = model_.blockedReason();
    spinner_->setStill(model_.shouldReduceMotion());
    spinner_->setVisible(model_.collector().isScanning());
    banner_->setReason(QString::fromStdString(reason.value_or("")));
    banner_->setVisible(reason.has_value());
    fullDiskAccessPrompt_->setVisible(!model_.hasFullDiskAccess());
    contactsPrompt_->setVisible(
        model_.contactsAvailability() != ContactBridge::Availability::Granted);
    updateActivity();
    updateAccount();
}

void MenuBarContentView::updateActivity() {
    const bool hasScanned = model_.collector().hasScanned();
    noScans_->setVisible(!hasScanned);
    messageCount_->setVisible(hasScanned);
    const std::int64_t count = model_.watermarkStore().messagesLast24h();
    messageCount_->setText(
        count < 1 ? tr("No messages scanned in the last 24 hours")
                  : tr("%1 messages scanned in the last 24 hours").arg(count));

    // The banner explains a blocked collection, so do not show an old error with it.
    const auto& history = model_.collector().history();
    const bool showsError =
        !history.empty() && history.front().error && !model_.blockedReason().has_value();
    scanError_->setText(showsError ? QString::fromStdString(*history.front().error) : QString());
    scanError_->setVisible(showsError);
}

void MenuBarContentView::updateAccount() {
    const AuthService& auth = model_.auth();
    const bool isSigningIn = auth.isSigningIn();
    signIn_->setText(isSigningIn ? tr("Signing in…") : tr("Sign in…"));
    signIn_->setEnabled(!isSigningIn);
    cancelSignIn_->setVisible(isSigningIn);
    signedOutRow_->setVisible(!auth.isSignedIn());
    noAccountPrompt_->setVisible(auth.needsAccount());

    const QString account = QString::fromStdString(auth.accountEmail().value_or(""));
    account_->setText(account.isEmpty() ? tr("Signed in") : account);
    signedInRow_->setVisible(auth.isSignedIn());

    // The prompt shows the same error, together with the remedy.
    const bool showsError = auth.lastError() && !auth.needsAccount();
    signInError_->setText(showsError ? QString::fromStdString(*auth.lastError()) : QString());
    signInError_->setVisible(showsError);
}

QSize MenuBarContentView::sizeHint() const {
    activateLayouts(content_);
    const int edges = 2 * frameWidth();
    const int width = std::max(Theme::panelWidth, content_->minimumSizeHint().width() + edges);
    return {width, content_->heightForWidth(width - edges) + edges};
}

void MenuBarContentView::fitToContent() {
    const bool isFrameless = isWindow() && windowFlags().testFlag(Qt::FramelessWindowHint);
    setFrameStyle(isFrameless ? QFrame::Box | QFrame::Plain : QFrame::NoFrame);
    QSize size = sizeHint();
    const int available = screen()->availableGeometry().height();
    const bool scrolls = size.height() > available;
    if (scrolls) {
        size = QSize(size.width() + verticalScrollBar()->sizeHint().width(), available);
    }
    // With ScrollBarAsNeeded, the scroll bar would stay: it narrows the content, which then is too
    // high to do without it.
    setVerticalScrollBarPolicy(scrolls ? Qt::ScrollBarAlwaysOn : Qt::ScrollBarAlwaysOff);
    setFixedSize(size);
}

bool MenuBarContentView::event(QEvent* event) {
    const bool isHandled = QScrollArea::event(event);
    if (event->type() == QEvent::Paint && frameShape() != QFrame::NoFrame) {
        QPainter painter(this);
        const int width = frameWidth();
        for (const QRect& side : QRegion(rect()) - rect().adjusted(width, width, -width, -width)) {
            painter.fillRect(side, Theme::borderColor(Theme::Surface::Card, palette()));
        }
    }
    return isHandled;
}

bool MenuBarContentView::eventFilter(QObject* watched, QEvent* event) {
    if (watched == content_ && event->type() == QEvent::LayoutRequest) {
        fitToContent();
    }
    return QScrollArea::eventFilter(watched, event);
}

void MenuBarContentView::showEvent(QShowEvent* event) {
    fitToContent();
    QScrollArea::showEvent(event);
    if (focusWidget() == nullptr) {
        // Otherwise a key pressed while the panel opens could press a button.
        setFocus();
    }
    if (!event->spontaneous()) {
        static_cast<void>(model_.refreshPermissions());
    }
}

} // namespace orvel
