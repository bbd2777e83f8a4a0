// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

class QCheckBox;
class QComboBox;
class QPushButton;
class QTabWidget;

namespace orvel {

class AppModel;
class Bundle;
class SelectableLabel;

/// The settings window, with two tabs: how the agent runs, and what it collects.
///
/// Its size is fixed, and larger only if larger text needs it. Borrows the model. The bundle is
/// read only by the constructor.
class SettingsView final : public QWidget {
    Q_OBJECT

public:
    SettingsView(AppModel& model, const Bundle& bundle, QWidget* parent = nullptr);

Q_SIGNALS:
    void activityLogRequested();
    void versionHistoryRequested();

protected:
    bool event(QEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    [[nodiscard]] QWidget* makeGeneralTab(const Bundle& bundle);
    [[nodiscard]] QWidget* makePrivacyTab();
    void updateContent();
    void updateIcons();
    void updateSize();
    void setChecksAutomatically(bool isAutomatic);
    void checkForUpdates();

    AppModel& model_;
    QTabWidget* tabs_;
    QCheckBox* startAtLogin_;
    QCheckBox* checksAutomatically_;
    QPushButton* checkForUpdates_;
    QComboBox* mode_;
    QComboBox* scope_;
    SelectableLabel* rescanNote_;
    SelectableLabel* error_;
    bool isRescanNoted_ = false;
};

} // namespace orvel
