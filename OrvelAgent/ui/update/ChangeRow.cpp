// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/update/ChangeRow.h"

#include "OrvelAgent/ui/controls/Badge.h"
#include "OrvelAgent/ui/controls/Layouts.h"
#include "OrvelAgent/ui/controls/SelectableLabel.h"
#include "OrvelAgent/ui/controls/Theme.h"

#include <QEvent>
#include <QHBoxLayout>

#include <algorithm>
#include <string_view>

namespace orvel {

namespace {

Theme::Role roleOf(std::string_view label) {
    if (label == "New") {
        return Theme::Role::Green;
    }
    return label == "Better" ? Theme::Role::Blue : Theme::Role::Orange;
}

} // namespace

ChangeRow::ChangeRow(const tavrin::VersionHistory::Change& change, QWidget* parent)
    : QWidget(parent),
      badge_(new Badge(
          QString::fromStdString(change.label), roleOf(change.label), Badge::Shape::Filled)) {
    // A screen reader announces the label before the text.
    setAccessibleName(badge_->text());
    badge_->setObjectName(QStringLiteral("label"));
    auto* text = new SelectableLabel(
        Theme::TextStyle::Body, Theme::Role::Primary, QString::fromStdString(change.text));
    text->setObjectName(QStringLiteral("change"));
    text->setWordWrap(true);
    auto* layout = makeLayout<QHBoxLayout>(this, Theme::controlSpacing);
    layout->addWidget(badge_, 0, Qt::AlignTop);
    layout->addWidget(text, 1);
    updateStyle();
}

void ChangeRow::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ApplicationFontChange) {
        updateStyle();
    }
}

void ChangeRow::updateStyle() {
    // At least as wide as the widest common label, so that the texts align at every text size.
    const int widestCommon = Badge::widthOf(QStringLiteral("Better"));
    badge_->setFixedWidth(std::max({badgeWidth, widestCommon, badge_->sizeHint().width()}));
}

} // namespace orvel
