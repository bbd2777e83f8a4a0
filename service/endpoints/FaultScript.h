// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace orvel::service {

/// A way to make a reply fail.
struct Fault {
    /// Applies to requests to this path only. Empty means every path.
    std::string path = {};
    /// How long to wait before the request is handled.
    std::chrono::milliseconds delay{0};
    /// Sent instead of handling the request. Without a value, the request is handled and its own
    /// reply is sent.
    std::optional<Reply> reply = {};
    Reply::Delivery delivery = Reply::Delivery::Complete;

    /// A status with the given body, unchanged.
    [[nodiscard]] static Fault answer(int status, std::string body);
    /// A status with an error in the envelope.
    [[nodiscard]] static Fault refusal(int status, std::string code, std::string sentence);
    /// A status with an error in the identity provider's format.
    [[nodiscard]] static Fault identityError(int status, std::string_view message);
    /// The normal reply, after a delay.
    [[nodiscard]] static Fault delayed(std::chrono::milliseconds delay);
    [[nodiscard]] static Fault reset();
    [[nodiscard]] static Fault cutOff();
    /// The request is handled (a batch is stored), but the connection is reset without a reply.
    [[nodiscard]] static Fault acceptThenReset();
    /// The request is handled, and only half of its reply is sent.
    [[nodiscard]] static Fault acceptThenCutOff();
};

/// The pending faults, in the order in which they were added. Thread-safe.
class FaultScript final {
public:
    void add(Fault fault, std::size_t times);
    void clear();

    /// Removes and returns the first fault for the path.
    [[nodiscard]] std::optional<Fault> take(std::string_view path);

    /// The number of pending faults.
    [[nodiscard]] std::size_t pending() const;

private:
    struct Entry {
        Fault fault;
        std::size_t times = 0;
    };

    mutable std::mutex mutex_;
    std::deque<Entry> entries_;
};

} // namespace orvel::service
