// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Card.h"
#include "platform/Workspace.h"

class QPushButton;
class QVBoxLayout;

namespace orvel {

class AppModel;
class TextLabel;
class WrappingRow;

/// A block that asks the user for something the agent cannot take by itself: a title, a sentence or
/// two, and buttons. Why a button could not do its work is said below them.
class Prompt : public Card {
    Q_OBJECT

protected:
    Prompt(const QString& title, const QString& text, QWidget* parent);

    TextLabel* addText(const QString& text);
    /// Beside the button before, or below the text before. `text` has its ampersands doubled.
    QPushButton* addButton(const QString& text);
    /// A button that opens the desktop's settings.
    void addSettingsButton(AppModel& model, Workspace::SettingsPane pane);

private:
    /// Before the failure, which stays last.
    [[nodiscard]] int end() const;

    QVBoxLayout* layout_;
    /// The last row of buttons, while nothing follows it.
    WrappingRow* buttons_ = nullptr;
    TextLabel* failure_;
};

} // namespace orvel
