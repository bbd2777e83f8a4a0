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

/// A card that asks the user to act: a title, texts and buttons. An error of the settings button is
/// shown at the bottom.
class Prompt final : public Card {
    Q_OBJECT

public:
    Prompt(const QString& title, const QString& text);

    TextLabel* addText(const char* name, const QString& text);
    /// Adds the button to the current row, or starts a row after a text. Double every literal
    /// ampersand in `text`.
    QPushButton* addButton(const char* name, const QString& text);
    void addSettingsButton(AppModel& model, Workspace::SettingsPane pane);

private:
    /// The index at which to insert. The error text stays last.
    [[nodiscard]] int end() const;

    QVBoxLayout* layout_;
    /// The current row of buttons. Null after a text.
    WrappingRow* buttons_ = nullptr;
    TextLabel* failure_;
};

} // namespace orvel
