// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QDialog>

#include <cstdint>
#include <optional>

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace orvel {

class SelectableLabel;

/// Shows how an update is coming along, and asks what is to be asked. It decides nothing.
///
/// Closing it, by whatever means, and every button that declines are one: `dismissed`.
class UpdateWindow final : public QDialog {
    Q_OBJECT

public:
    enum class Button { Install, Later, Skip, Cancel, OK };

    /// What is shown at a time. All texts are plain.
    struct Page {
        QString title;
        QString text;
        /// None when empty.
        QString notes;
        /// In percent; below 0 while nobody knows how long it takes.
        std::optional<int> progress;
        /// The usual answer first.
        QList<Button> buttons;
    };

    explicit UpdateWindow(QWidget* parent = nullptr);

    /// A bar that only moves is left out when nothing is to move. Where the usual answer is to
    /// install, no key gives it: the page comes by itself, and may come while somebody types.
    void setPage(const Page& page, bool reducesMotion);
    /// Shows the window before all others.
    void present();
    /// For whoever has just asked for the page.
    void focusUsualAnswer();

    void reject() override;

Q_SIGNALS:
    void installRequested();
    void skipRequested();
    void dismissed();
    /// The window has come to the user's attention.
    void seen();

protected:
    bool event(QEvent* event) override;

private:
    void updateSize();

    SelectableLabel* title_;
    SelectableLabel* text_;
    QPlainTextEdit* notes_;
    QProgressBar* progress_;
    QList<QPushButton*> buttons_;
    /// Of the page; none when it has no buttons.
    QPushButton* usualAnswer_ = nullptr;
    /// When the window is higher than that, the user has made it so.
    int neededHeight_ = 0;
};

} // namespace orvel
