// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <functional>

namespace orvel::test {

/// Runs the event loop until the condition holds; for what no signal tells, such as the doings of
/// other programs. Gives false when that takes longer than the limit.
[[nodiscard]] inline bool waitUntil(
    const std::function<bool()>& condition, std::chrono::seconds limit = std::chrono::seconds(20)) {
    QEventLoop loop;
    QTimer look;
    QObject::connect(&look, &QTimer::timeout, &loop, [&] {
        if (condition()) {
            loop.quit();
        }
    });
    look.start(std::chrono::milliseconds(2));
    QTimer::singleShot(limit, &loop, &QEventLoop::quit);
    if (!condition()) {
        loop.exec();
    }
    return condition();
}

} // namespace orvel::test
