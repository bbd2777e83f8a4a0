// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/log/StreamingIndicator.h"

#include "OrvelAgent/ui/controls/Dot.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"

#include <QHBoxLayout>

namespace orvel {

StreamingIndicator::StreamingIndicator(QWidget* parent)
    : QWidget(parent),
      dot_(new Dot(Theme::Role::Secondary)),
      word_(new SelectableLabel(Theme::TextStyle::Caption, Theme::Role::Secondary)) {
    dot_->setObjectName(QStringLiteral("streamingDot"));
    word_->setObjectName(QStringLiteral("streaming"));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(Theme::lineSpacing);
    layout->addWidget(dot_);
    layout->addWidget(word_);
    setStreaming(false);
}

void StreamingIndicator::setStreaming(bool isStreaming) {
    dot_->setRole(isStreaming ? Theme::Role::Green : Theme::Role::Secondary);
    word_->setText(isStreaming ? tr("Live") : tr("Paused"));
}

} // namespace orvel
