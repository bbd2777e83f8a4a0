// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/log/LogReader.h"
#include "platform/Clock.h"

#include <QWidget>

#include <memory>

class QCheckBox;
class QPushButton;
class QStackedWidget;

namespace orvel {

class Dot;
class LogListModel;
class LogStore;
class LogView;
class Notice;
class SelectableLabel;

/// Shows the agent's own log, which is read only while the window is visible. Borrows store and
/// clock.
class LogWindow final : public QWidget {
    Q_OBJECT

public:
    /// How long the button shows "Copied".
    static constexpr tavrin::Seconds confirmation{2};

    LogWindow(
        LogStore& store, Clock& clock, LogReader::Subsystems subsystems, QWidget* parent = nullptr);
    ~LogWindow() override;

protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void updateContent();
    void copyAll();
    void showCopied(bool isCopied);
    void updateStyle();

    Clock& clock_;
    LogReader reader_;
    const std::unique_ptr<LogListModel> model_;
    QCheckBox* problemsOnly_;
    Dot* streamingDot_;
    SelectableLabel* streaming_;
    QPushButton* copyAll_;
    QStackedWidget* content_;
    LogView* list_;
    Notice* notice_;
    std::unique_ptr<Clock::Timer> confirming_;
};

} // namespace orvel
