// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QScrollArea>

class QPushButton;

namespace orvel {

class AppModel;
class BlockedBanner;
class Prompt;
class SelectableText;
class Spinner;
class TextButton;
class TextLabel;

/// The panel of the tray icon: whether collection works, what blocks it, and the account.
///
/// As high as its content, and scrolls only if the screen is not high enough. Draws its own border
/// as a frameless window. Borrows the model.
class MenuBarContentView final : public QScrollArea {
    Q_OBJECT

public:
    explicit MenuBarContentView(AppModel& model, QWidget* parent = nullptr);

    [[nodiscard]] QSize sizeHint() const override;

Q_SIGNALS:
    void versionHistoryRequested();
    void settingsRequested();
    void quitRequested();

protected:
    bool event(QEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    QWidget* makeHeader();
    QWidget* makeActivity();
    QWidget* makeAccount();
    QWidget* makeBottomRow();

    void updateContent();
    void updateActivity();
    void updateAccount();
    void fitToContent();

    AppModel& model_;
    QWidget* content_;

    Spinner* spinner_ = nullptr;
    BlockedBanner* banner_ = nullptr;
    Prompt* fullDiskAccessPrompt_ = nullptr;
    Prompt* contactsPrompt_ = nullptr;

    TextLabel* noScans_ = nullptr;
    TextLabel* messageCount_ = nullptr;
    SelectableText* scanError_ = nullptr;

    SelectableText* signInError_ = nullptr;
    QWidget* signedOutRow_ = nullptr;
    QPushButton* signIn_ = nullptr;
    TextButton* cancelSignIn_ = nullptr;
    Prompt* noAccountPrompt_ = nullptr;
    QWidget* signedInRow_ = nullptr;
    TextLabel* account_ = nullptr;
};

} // namespace orvel
