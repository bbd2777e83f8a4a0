// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/Prompt.h"

#include "OrvelAgent/app/AppModel.h"
#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/PushButton.h"
#include "OrvelAgent/ui/controls/TextLabel.h"
#include "OrvelAgent/ui/controls/WrappingRow.h"

#include <QPointer>
#include <QVBoxLayout>

namespace orvel {

Prompt::Prompt(const QString& title, const QString& text)
    : Card(Theme::Surface::Card),
      layout_(makeLayout<QVBoxLayout>(this, Theme::lineSpacing)),
      failure_(named("failure", new TextLabel(Theme::TextStyle::Caption, Theme::Role::Red))) {
    setAccessibleName(title);
    auto* titleLabel = named("title", new TextLabel(Theme::TextStyle::Headline));
    titleLabel->setText(title);
    layout_->addWidget(titleLabel);
    failure_->hide();
    layout_->addWidget(failure_);
    addText("text", text);
}

int Prompt::end() const {
    return layout_->count() - 1;
}

TextLabel* Prompt::addText(const char* name, const QString& text) {
    if (buttons_ != nullptr) {
        layout_->insertSpacing(end(), Theme::lineSpacing);
        buttons_ = nullptr;
    }
    auto* label = named(name, new TextLabel(Theme::TextStyle::Callout, Theme::Role::Secondary));
    label->setText(text);
    layout_->insertWidget(end(), label);
    return label;
}

QPushButton* Prompt::addButton(const char* name, const QString& text) {
    if (buttons_ == nullptr) {
        layout_->insertSpacing(end(), Theme::lineSpacing);
        buttons_ = new WrappingRow;
        layout_->insertLayout(end(), buttons_);
    }
    auto* button = named(name, new PushButton(text));
    buttons_->addWidget(button);
    return button;
}

void Prompt::addSettingsButton(AppModel& model, Workspace::SettingsPane pane) {
    QPushButton* button = addButton("openSystemSettings", tr("Open System Settings"));
    connect(button, &QPushButton::clicked, this, [this, &model, pane] {
        failure_->hide();
        model.openSettings(
            pane, [prompt = QPointer(this)](const std::optional<tavrin::PlatformError>& error) {
                if (prompt && error) {
                    prompt->failure_->setText(QString::fromUtf8(error->what()));
                    prompt->failure_->show();
                }
            });
    });
}

} // namespace orvel
