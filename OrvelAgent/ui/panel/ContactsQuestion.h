// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDialog>

#include <functional>

namespace orvel {

/// Asks whether the address book may be read, on systems that do not ask themselves.
///
/// Calls the answer once. Closing the window answers no. Destroying it while it is open calls
/// nothing. Deletes itself when closed.
class ContactsQuestion final : public QDialog {
    Q_OBJECT

public:
    using Answer = std::function<void(bool isAllowed)>;

    ContactsQuestion(const QString& displayName, Answer answer, QWidget* parent = nullptr);

    /// Shows the window, or raises it if it is open. It is not modal.
    void ask();

    /// True once the window starts to close.
    [[nodiscard]] bool isAnswered() const { return !answer_; }

    void done(int result) override;

private:
    Answer answer_;
};

} // namespace orvel
