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

/// One way to spoil a reply.
struct Fault {
    /// Only requests to this path; every path when empty.
    std::string path;
    /// Time between the arrival of the request and everything else.
    std::chrono::milliseconds delay{0};
    /// Sent instead of carrying the request out. Without it the request is carried out and its own
    /// reply is sent.
    std::optional<Reply> reply;
    Reply::Delivery delivery = Reply::Delivery::Complete;

    /// A status with a body as it stands.
    [[nodiscard]] static Fault answer(int status, std::string body);
    /// A status with an error in the envelope.
    [[nodiscard]] static Fault refusal(int status, std::string code, std::string sentence);
    /// A status with an error as the identity provider words it.
    [[nodiscard]] static Fault identityError(int status, std::string_view message);
    /// The true reply, late.
    [[nodiscard]] static Fault delayed(std::chrono::milliseconds delay);
    [[nodiscard]] static Fault reset();
    [[nodiscard]] static Fault cutOff();
    /// The request is carried out (a batch is stored), but the client never learns of it.
    [[nodiscard]] static Fault acceptThenReset();
    /// The request is carried out, and half of its reply arrives.
    [[nodiscard]] static Fault acceptThenCutOff();
};

/// The faults to come, in the order they were added. Usable from several threads.
class FaultScript final {
public:
    void add(Fault fault, std::size_t times);
    void clear();

    /// Takes the first fault that is meant for the path.
    [[nodiscard]] std::optional<Fault> take(std::string_view path);

    /// How many faults are still to come.
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
