// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// Stands for a callback that has been subscribed; unsubscribes it when destroyed. May outlive what
/// it was subscribed to.
class Subscription {
public:
    Subscription() = default;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    virtual ~Subscription() = default;
};

} // namespace orvel
