// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/ui/controls/WrappingRow.h"

#include "OrvelAgent/ui/controls/Theme.h"

#include <QStyle>
#include <QWidget>

#include <algorithm>
#include <limits>
#include <utility>

namespace orvel {

WrappingRow::WrappingRow(QWidget* parent) : QLayout(parent) {
    setContentsMargins(0, 0, 0, 0);
    setSpacing(Theme::controlSpacing);
}

void WrappingRow::beginTrailing() {
    isTrailing_ = true;
}

void WrappingRow::addItem(QLayoutItem* item) {
    items_.push_back(Item{std::unique_ptr<QLayoutItem>(item), isTrailing_});
}

int WrappingRow::count() const {
    return int(items_.size());
}

QLayoutItem* WrappingRow::itemAt(int index) const {
    return index >= 0 && index < count() ? items_[std::size_t(index)].item.get() : nullptr;
}

QLayoutItem* WrappingRow::takeAt(int index) {
    if (itemAt(index) == nullptr) {
        return nullptr;
    }
    const auto taken = items_.begin() + index;
    QLayoutItem* item = taken->item.release();
    items_.erase(taken);
    return item;
}

QSize WrappingRow::sizeHint() const {
    const std::vector<Line> all = lines(std::numeric_limits<int>::max());
    return all.empty() ? QSize(0, 0) : QSize(all.front().width, all.front().height);
}

QSize WrappingRow::minimumSize() const {
    QSize size(0, 0);
    for (const Item& item : items_) {
        if (!item.item->isEmpty()) {
            size = size.expandedTo(item.item->sizeHint());
        }
    }
    return size;
}

Qt::Orientations WrappingRow::expandingDirections() const {
    return Qt::Horizontal;
}

int WrappingRow::heightForWidth(int width) const {
    int height = 0;
    for (const Line& line : lines(width)) {
        height += (height > 0 ? spacing() : 0) + line.height;
    }
    return height;
}

void WrappingRow::setGeometry(const QRect& rect) {
    QLayout::setGeometry(rect);
    int y = rect.y();
    for (const Line& line : lines(rect.width())) {
        arrange(line, QRect(rect.x(), y, rect.width(), line.height));
        y += line.height + spacing();
    }
}

std::vector<WrappingRow::Line> WrappingRow::lines(int width) const {
    std::vector<Line> result;
    for (const Item& item : items_) {
        if (item.item->isEmpty()) {
            continue;
        }
        const QSize size = item.item->sizeHint();
        if (result.empty() || result.back().width + spacing() + size.width() > width) {
            result.emplace_back();
        } else {
            result.back().width += spacing();
        }
        Line& line = result.back();
        line.items.push_back(&item);
        line.width += size.width();
        line.height = std::max(line.height, size.height());
    }
    return result;
}

void WrappingRow::arrange(const Line& line, const QRect& rect) const {
    const Qt::LayoutDirection direction =
        parentWidget() != nullptr ? parentWidget()->layoutDirection() : Qt::LeftToRight;
    int x = rect.x();
    int slack = std::max(0, rect.width() - line.width);
    for (const Item* item : line.items) {
        if (item->isTrailing) {
            x += std::exchange(slack, 0);
        }
        const QSize size = item->item->sizeHint().boundedTo(QSize(rect.width(), line.height));
        const QRect wanted(QPoint(x, rect.y() + (line.height - size.height()) / 2), size);
        item->item->setGeometry(QStyle::visualRect(direction, rect, wanted));
        x += size.width() + spacing();
    }
}

} // namespace orvel
