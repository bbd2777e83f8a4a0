// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/update/UpdateWindow.h"

#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/PushButton.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QShortcut>
#include <QVBoxLayout>

#include <algorithm>

namespace orvel {

static constexpr int preferredWidth = 420;

UpdateWindow::UpdateWindow(QWidget* parent)
    : QDialog(parent),
      title_(named("title", new SelectableLabel(Theme::TextStyle::Headline))),
      text_(named("text", new SelectableLabel(Theme::TextStyle::Body))),
      notes_(named("notes", new QPlainTextEdit)),
      progress_(named("progress", new QProgressBar)) {
    setObjectName(QStringLiteral("software-update"));
    setWindowTitle(tr("Software Update"));
    title_->setWordWrap(true);
    text_->setWordWrap(true);
    notes_->setAccessibleName(tr("Release notes"));
    notes_->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    notes_->setTabChangesFocus(true);
    progress_->setAccessibleName(tr("Progress"));
    progress_->setTextVisible(false);

    auto* buttons = makeLayout<QHBoxLayout>(nullptr, Theme::controlSpacing);
    const auto addButton = [this, buttons](const QString& text, const char* name) {
        auto* button = named(name, new PushButton(text));
        buttons->addWidget(button);
        return button;
    };
    // The usual answer comes last, away from "Skip", which is hard to undo.
    auto* skip = addButton(tr("&Skip this version"), "skip");
    buttons->addStretch();
    auto* later = addButton(tr("&Later"), "later");
    auto* cancel = addButton(tr("&Cancel"), "cancel");
    auto* install = addButton(tr("&Install"), "install");
    auto* ok = addButton(tr("&OK"), "ok");
    // In the order of `Button`.
    buttons_ = {install, later, skip, cancel, ok};
    connect(install, &QPushButton::clicked, this, &UpdateWindow::installRequested);
    connect(skip, &QPushButton::clicked, this, &UpdateWindow::skipRequested);
    for (QPushButton* button : {later, cancel, ok}) {
        connect(button, &QPushButton::clicked, this, &UpdateWindow::reject);
    }

    auto* layout = makeLayout<QVBoxLayout>(this, Theme::blockSpacing, Theme::windowPadding);
    layout->addWidget(title_);
    layout->addWidget(text_);
    layout->addWidget(notes_, 1);
    layout->addWidget(progress_);
    layout->addStretch();
    layout->addLayout(buttons);
    resize(preferredWidth, 0);
    auto* close = new QShortcut(Qt::CTRL | Qt::Key_W, this);
    connect(close, &QShortcut::activated, this, &UpdateWindow::reject);
}

void UpdateWindow::setPage(const Page& page, bool reducesMotion) {
    title_->setText(page.title);
    text_->setText(page.text);
    text_->setVisible(!page.text.isEmpty());
    if (notes_->toPlainText() != page.notes) {
        notes_->setPlainText(page.notes);
    }
    notes_->setVisible(!page.notes.isEmpty());
    const bool isBusy = page.progress && *page.progress < 0;
    progress_->setVisible(page.progress && !(isBusy && reducesMotion));
    progress_->setRange(0, isBusy ? 0 : 100);
    progress_->setValue(page.progress.value_or(0));
    for (qsizetype index = 0; index < buttons_.size(); ++index) {
        buttons_[index]->setVisible(page.buttons.contains(static_cast<Button>(index)));
    }
    usualAnswer_ =
        page.buttons.isEmpty() ? nullptr : buttons_[static_cast<qsizetype>(page.buttons.first())];
    if (page.buttons.contains(Button::Install)) {
        for (QPushButton* button : buttons_) {
            button->setDefault(false);
        }
        setFocus();
    } else if (usualAnswer_ != nullptr && !usualAnswer_->isDefault()) {
        focusUsualAnswer();
    }
    updateSize();
}

void UpdateWindow::focusUsualAnswer() {
    if (usualAnswer_ != nullptr) {
        usualAnswer_->setDefault(true);
        usualAnswer_->setFocus();
    }
}

void UpdateWindow::present() {
    if (!isVisible()) {
        // Discard a height that the user set for an earlier page.
        neededHeight_ = height();
        updateSize();
    }
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void UpdateWindow::reject() {
    QDialog::reject();
    Q_EMIT dismissed();
}

bool UpdateWindow::event(QEvent* event) {
    const bool isHandled = QDialog::event(event);
    if (event->type() == QEvent::LayoutRequest) {
        updateSize();
    } else if (event->type() == QEvent::WindowActivate) {
        Q_EMIT seen();
    }
    return isHandled;
}

void UpdateWindow::updateSize() {
    const int minimumWidth = std::max(preferredWidth, minimumSizeHint().width());
    const int width = std::max(minimumWidth, this->width());
    const bool isFitted = height() <= neededHeight_;
    neededHeight_ = layout()->totalHeightForWidth(width);
    setMinimumSize(minimumWidth, neededHeight_);
    resize(width, isFitted ? neededHeight_ : std::max(neededHeight_, height()));
}

} // namespace orvel
