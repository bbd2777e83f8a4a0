// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

namespace orvel {

class Dot;
class SelectableLabel;

/// Whether the log is being followed: a dot, and the word for it.
class StreamingIndicator final : public QWidget {
    Q_OBJECT

public:
    explicit StreamingIndicator(QWidget* parent = nullptr);

    void setStreaming(bool isStreaming);

private:
    Dot* dot_;
    SelectableLabel* word_;
};

} // namespace orvel
