// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/panel/BlockedBanner.h"

#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/SymbolLabel.h"
#include "OrvelAgent/ui/controls/TextLabel.h"

#include <QHBoxLayout>

namespace orvel {

BlockedBanner::BlockedBanner(QWidget* parent)
    : Card(Theme::Surface::Banner, parent), reason_(new TextLabel(Theme::TextStyle::Callout)) {
    setObjectName(QStringLiteral("blockedBanner"));
    reason_->setObjectName(QStringLiteral("blockedReason"));
    auto* symbol = new SymbolLabel(
        Symbol::ExclamationMarkTriangle, Theme::TextStyle::Callout, Theme::Role::Orange);
    symbol->setObjectName(QStringLiteral("blockedSymbol"));
    symbol->setAccessibleName(tr("Warning"));
    auto* layout = makeLayout<QHBoxLayout>(this, Theme::controlSpacing);
    layout->addWidget(symbol, 0, Qt::AlignTop);
    layout->addWidget(reason_, 1);
}

void BlockedBanner::setReason(const QString& reason) {
    reason_->setText(reason);
}

} // namespace orvel
