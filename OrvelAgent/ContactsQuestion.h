// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

#include <functional>

namespace orvel {

/// The window that asks whether the address book may be read, where the system has none of its own.
///
/// Answers once: closing it is a no, destroying it unanswered is no answer. Deletes itself when
/// closed.
class ContactsQuestion final : public QWidget {
    Q_OBJECT

public:
    using Answer = std::function<void(bool isAllowed)>;

    ContactsQuestion(const QString& displayName, Answer answer, QWidget* parent = nullptr);
    ~ContactsQuestion() override;

    /// In front of the other windows, also when it is open already. They stay usable.
    void ask();

    /// It has closed, or is just about to.
    [[nodiscard]] bool isAnswered() const { return !answer_; }

protected:
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void answer(bool isAllowed);

    Answer answer_;
};

} // namespace orvel
