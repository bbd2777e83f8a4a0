// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/LogWindow.h"

#include "OrvelAgent/ui/controls/CheckBox.h"
#include "OrvelAgent/ui/controls/Divider.h"
#include "OrvelAgent/ui/controls/Dot.h"
#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/Notice.h"
#include "OrvelAgent/ui/controls/PushButton.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"
#include "OrvelAgent/ui/controls/Symbol.h"
#include "OrvelAgent/ui/controls/Theme.h"
#include "OrvelAgent/ui/log/LogListModel.h"
#include "OrvelAgent/ui/log/LogView.h"

#include <QApplication>
#include <QClipboard>
#include <QEvent>
#include <QHBoxLayout>
#include <QStackedWidget>
#include <QVBoxLayout>

#include <algorithm>
#include <optional>
#include <utility>

namespace orvel {

LogWindow::LogWindow(
    LogStore& store, Clock& clock, LogReader::Subsystems subsystems, QWidget* parent)
    : QWidget(parent),
      clock_(clock),
      reader_(store, clock, std::move(subsystems)),
      model_(std::make_unique<LogListModel>(reader_)),
      problemsOnly_(named("problemsOnly", new CheckBox(tr("&Problems only")))),
      streamingDot_(named("streamingDot", new Dot(Theme::Role::Secondary))),
      streaming_(named(
          "streaming", new SelectableLabel(Theme::TextStyle::Caption, Theme::Role::Secondary))),
      copyAll_(named("copyAll", new PushButton)),
      content_(new QStackedWidget),
      list_(named("log", new LogView(*model_))),
      notice_(new Notice) {
    setObjectName(QStringLiteral("activity-log"));
    setWindowTitle(tr("Orvel Agent Activity"));
    setMinimumSize(620, 380);

    list_->setAccessibleName(tr("Log, newest first"));
    content_->addWidget(list_);
    content_->addWidget(notice_);

    auto* indicator = makeLayout<QHBoxLayout>(nullptr, Theme::lineSpacing);
    indicator->addWidget(streamingDot_);
    indicator->addWidget(streaming_);
    auto* toolbar = makeLayout<QHBoxLayout>(nullptr, Theme::windowPadding);
    toolbar->setContentsMargins(
        Theme::windowPadding, Theme::controlSpacing, Theme::windowPadding, Theme::controlSpacing);
    toolbar->addWidget(problemsOnly_);
    toolbar->addLayout(indicator);
    toolbar->addStretch();
    toolbar->addWidget(copyAll_);
    auto* layout = makeLayout<QVBoxLayout>(this, 0);
    layout->addLayout(toolbar);
    layout->addWidget(new Divider);
    layout->addWidget(content_, 1);

    connect(&reader_, &LogReader::changed, this, &LogWindow::updateContent);
    connect(problemsOnly_, &QCheckBox::toggled, this, [this](bool isOn) {
        model_->setProblemsOnly(isOn);
        updateContent();
    });
    connect(copyAll_, &QPushButton::clicked, this, &LogWindow::copyAll);
    updateStyle();
    updateContent();
}

LogWindow::~LogWindow() {
    // The list uses the model, which is destroyed before the base class deletes the children.
    delete list_;
}

void LogWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    reader_.startStreaming();
}

void LogWindow::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    reader_.stopStreaming();
}

void LogWindow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ApplicationFontChange || event->type() == QEvent::PaletteChange) {
        updateStyle();
    }
}

void LogWindow::updateContent() {
    streamingDot_->setRole(reader_.isStreaming() ? Theme::Role::Green : Theme::Role::Secondary);
    streaming_->setText(reader_.isStreaming() ? tr("Live") : tr("Paused"));
    if (reader_.failure()) {
        notice_->set(
            Symbol::ExclamationMarkTriangle,
            tr("Could not read the log: %1").arg(QString::fromStdString(*reader_.failure())));
    } else if (problemsOnly_->isChecked()) {
        notice_->set(std::nullopt, tr("No errors this session."));
    } else {
        notice_->set(std::nullopt, tr("Nothing logged yet this session."));
    }
    const bool hasList = !reader_.failure() && model_->rowCount() > 0;
    content_->setCurrentIndex(hasList ? 0 : 1);
}

void LogWindow::copyAll() {
    QApplication::clipboard()->setText(QString::fromStdString(reader_.plainText()));
    showCopied(true);
    confirming_ = clock_.schedule(confirmation, [this] {
        showCopied(false);
        confirming_.reset();
    });
}

void LogWindow::showCopied(bool isCopied) {
    copyAll_->setText(isCopied ? tr("Copied") : tr("&Copy all"));
    copyAll_->setIcon(symbolIcon(
        isCopied ? Symbol::CheckMark : Symbol::DocOnDoc, palette().color(QPalette::ButtonText)));
}

void LogWindow::updateStyle() {
    problemsOnly_->setFont(Theme::font(Theme::TextStyle::Caption));
    const bool isCopied = confirming_ != nullptr;
    int width = 0;
    // Wide enough for both texts. The current one comes last and stays.
    for (const bool shown : {!isCopied, isCopied}) {
        showCopied(shown);
        width = std::max(width, copyAll_->sizeHint().width());
    }
    copyAll_->setMinimumWidth(width);
}

} // namespace orvel
