// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/ui/controls/Symbol.h"

#include <QWidget>

#include <optional>

class QLabel;

namespace orvel {

class SelectableLabel;

/// A centred text, with an optional symbol, for a window without content.
class Notice final : public QWidget {
    Q_OBJECT

public:
    explicit Notice(QWidget* parent = nullptr);

    void set(std::optional<Symbol> symbol, const QString& text);

protected:
    void changeEvent(QEvent* event) override;

private:
    void updateStyle();

    std::optional<Symbol> symbol_;
    QLabel* picture_;
    SelectableLabel* text_;
};

} // namespace orvel
