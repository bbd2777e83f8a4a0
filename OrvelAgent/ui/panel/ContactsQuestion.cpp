// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/ContactsQuestion.h"

#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/PushButton.h"
#include "OrvelAgent/ui/controls/Symbol.h"
#include "OrvelAgent/ui/controls/TextLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"
#include "OrvelAgent/ui/controls/WrappingRow.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QKeySequence>
#include <QLabel>
#include <QShortcut>
#include <QVBoxLayout>

#include <utility>

namespace orvel {

ContactsQuestion::ContactsQuestion(const QString& displayName, Answer answer, QWidget* parent)
    : QDialog(parent), answer_(std::move(answer)) {
    setObjectName(QStringLiteral("contactsQuestion"));
    setWindowTitle(displayName);
    setAttribute(Qt::WA_DeleteOnClose);

    auto* image = new QLabel;
    image->setPixmap(applicationIcon().pixmap(
        QSize(Theme::dialogIconSize, Theme::dialogIconSize), devicePixelRatioF()));

    auto* title = named("title", new TextLabel(Theme::TextStyle::Headline));
    title->setText(tr("Allow %1 to read your contacts?").arg(displayName));
    auto* text = named("text", new TextLabel(Theme::TextStyle::Body));
    text->setText(
        tr("It reads the names, phone numbers and e-mail addresses of all your cards, to tell "
           "which of them belong to one person.") +
        QStringLiteral("\n\n") +
        tr("Of people you exchange messages with, it sends the name and the e-mail addresses to "
           "your account, together with the messages."));

    auto* allow = named("allow", new PushButton(tr("Allow")));
    connect(allow, &QPushButton::clicked, this, &QDialog::accept);
    auto* refuse = named("dontAllow", new PushButton(tr("Don’t Allow")));
    connect(refuse, &QPushButton::clicked, this, &QDialog::reject);
    connect(
        new QShortcut(QKeySequence::Close, this), &QShortcut::activated, this, &QDialog::reject);

    auto* buttons = new WrappingRow;
    buttons->beginTrailing();
    buttons->addWidget(refuse);
    buttons->addWidget(allow);

    auto* column = makeLayout<QVBoxLayout>(nullptr, Theme::blockSpacing);
    column->addWidget(title);
    column->addWidget(text);
    column->addStretch();
    column->addLayout(buttons);
    auto* layout = makeLayout<QHBoxLayout>(this, Theme::windowPadding, Theme::windowPadding);
    layout->addWidget(image, 0, Qt::AlignTop);
    layout->addLayout(column, 1);
    // The window may open while the user types: Space or Return must not allow access.
    refuse->setFocus();
    layout->setSizeConstraint(QLayout::SetFixedSize);
}

void ContactsQuestion::ask() {
    setWindowState(windowState() & ~Qt::WindowMinimized);
    show();
    raise();
    activateWindow();
}

void ContactsQuestion::done(int result) {
    // Clear the member first: the callback may close the window again.
    const Answer answer = std::exchange(answer_, {});
    QDialog::done(result);
    if (answer) {
        answer(result == Accepted);
    }
}

} // namespace orvel
