// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <QObject>

#include <utility>

namespace orvel {

/// Receives a port's callbacks on the thread that created it. A port declares it after all members
/// that callbacks use: destroying it drops pending callbacks.
class CallbackContext final : public QObject {
public:
    /// Any thread. Runs the callback from the event loop.
    template <typename Callback>
    void post(Callback callback) {
        QMetaObject::invokeMethod(this, std::move(callback), Qt::QueuedConnection);
    }
};

} // namespace orvel
