// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QWidget>

namespace orvel {

class Dot;
class SelectableLabel;

/// A dot and a word that show whether the log is being followed.
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
