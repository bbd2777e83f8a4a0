// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/Notice.h"

#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"

#include <QEvent>
#include <QLabel>
#include <QVBoxLayout>

namespace orvel {

static constexpr int pictureSize = 32;

Notice::Notice(QWidget* parent)
    : QWidget(parent),
      picture_(named("noticeSymbol", new QLabel)),
      text_(named("notice", new SelectableLabel(Theme::TextStyle::Body, Theme::Role::Secondary))) {
    picture_->setAlignment(Qt::AlignCenter);
    text_->setWordWrap(true);
    text_->setAlignment(Qt::AlignCenter);
    auto* layout = makeLayout<QVBoxLayout>(this, Theme::blockSpacing, Theme::windowPadding);
    layout->addStretch();
    layout->addWidget(picture_);
    layout->addWidget(text_);
    layout->addStretch();
}

void Notice::set(std::optional<Symbol> symbol, const QString& text) {
    symbol_ = symbol;
    picture_->setVisible(symbol.has_value());
    text_->setText(text);
    updateStyle();
}

void Notice::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        updateStyle();
    }
}

void Notice::updateStyle() {
    if (symbol_) {
        picture_->setPixmap(symbolPixmap(
            *symbol_,
            pictureSize,
            Theme::color(Theme::Role::Secondary, palette()),
            devicePixelRatioF()));
    }
}

} // namespace orvel
