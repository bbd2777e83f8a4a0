// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QStringList>

class QWidget;

namespace orvel::test {

/// What a designer would send back in the window as it is laid out now: controls and texts that
/// are cut, lie over each other, or reach out of what they are in. One line each.
[[nodiscard]] QStringList layoutFaults(const QWidget& window);

/// The controls that the Tab key reaches, in its order, by object name; starts and ends anywhere.
[[nodiscard]] QStringList tabOrder(const QWidget& window);

} // namespace orvel::test
