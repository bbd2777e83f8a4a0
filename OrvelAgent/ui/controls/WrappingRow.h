// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QLayout>
#include <QRect>

#include <memory>
#include <vector>

namespace orvel {

/// Lays out controls in a row and wraps to further lines if they do not fit.
class WrappingRow final : public QLayout {
    Q_OBJECT

public:
    explicit WrappingRow(QWidget* parent = nullptr);

    /// Controls added after this call are aligned with the end of the line.
    void beginTrailing();

    void addItem(QLayoutItem* item) override;
    [[nodiscard]] int count() const override;
    [[nodiscard]] QLayoutItem* itemAt(int index) const override;
    QLayoutItem* takeAt(int index) override;
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] QSize minimumSize() const override;
    [[nodiscard]] Qt::Orientations expandingDirections() const override;
    [[nodiscard]] bool hasHeightForWidth() const override { return true; }
    [[nodiscard]] int heightForWidth(int width) const override;
    void setGeometry(const QRect& rect) override;

private:
    struct Item {
        std::unique_ptr<QLayoutItem> item;
        bool isTrailing = false;
    };
    struct Line {
        std::vector<const Item*> items;
        int width = 0;
        int height = 0;
    };

    [[nodiscard]] std::vector<Line> lines(int width) const;
    void arrange(const Line& line, const QRect& rect) const;

    std::vector<Item> items_;
    bool isTrailing_ = false;
};

} // namespace orvel
