// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QEventLoop>
#include <QTimer>

#include <chrono>
#include <functional>

namespace orvel::test {

/// Runs the event loop until the condition holds. For conditions without a signal, such as those of
/// other programs. Returns false if the limit is exceeded.
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
