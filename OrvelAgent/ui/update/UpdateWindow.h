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

/// Shows one stage of an update with its buttons.
///
/// Closing the window in any way, and every button that declines, emits `dismissed`.
class UpdateWindow final : public QDialog {
    Q_OBJECT

public:
    enum class Button { Install, Later, Skip, Cancel, OK };

    /// The content for one stage. All texts are plain.
    struct Page {
        QString title;
        QString text;
        /// Release notes; hidden when empty.
        QString notes;
        /// In percent; below 0 while the duration is unknown.
        std::optional<int> progress;
        /// Starts with the usual answer.
        QList<Button> buttons;
    };

    explicit UpdateWindow(QWidget* parent = nullptr);

    /// With reduced motion, a bar of unknown duration is hidden. When the usual answer is to
    /// install, it is not the default button: the page may appear while the user types.
    void setPage(const Page& page, bool reducesMotion);
    void present();
    /// Call it only for a page that the user has just requested: the Return key then confirms it.
    void focusUsualAnswer();

    void reject() override;

Q_SIGNALS:
    void installRequested();
    void skipRequested();
    void dismissed();
    /// The window became active.
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
    /// Null when the page has no buttons.
    QPushButton* usualAnswer_ = nullptr;
    /// A window higher than this was resized by the user.
    int neededHeight_ = 0;
};

} // namespace orvel
