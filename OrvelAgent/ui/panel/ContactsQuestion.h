// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDialog>

#include <functional>

namespace orvel {

/// The window that asks whether the address book may be read, where the system has none of its own.
///
/// Answers once: closing it is a no, destroying it unanswered is no answer. Deletes itself when
/// closed.
class ContactsQuestion final : public QDialog {
    Q_OBJECT

public:
    using Answer = std::function<void(bool isAllowed)>;

    ContactsQuestion(const QString& displayName, Answer answer, QWidget* parent = nullptr);

    /// In front of the other windows, also when it is open already. They stay usable.
    void ask();

    /// It has closed, or is just about to.
    [[nodiscard]] bool isAnswered() const { return !answer_; }

    void done(int result) override;

private:
    Answer answer_;
};

} // namespace orvel
