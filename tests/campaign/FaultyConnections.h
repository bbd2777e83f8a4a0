// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace orvel::test {

/// A TCP proxy on 127.0.0.1 that can break a connection after a given number of bytes. Handles one
/// connection after the other.
class FaultyConnections final {
public:
    struct Fault {
        enum class Side { Request, Reply };
        enum class Effect {
            /// Resets both connections.
            Reset,
            /// Passes nothing on until the client gives up.
            Stall,
            /// Sends the client bytes that are not part of the protocol, then closes.
            Garbage,
        };

        Side side = Side::Request;
        /// How many bytes of that side pass, counted over all connections since `arm`.
        std::size_t after = 0;
        Effect effect = Effect::Reset;
        /// For `Garbage`.
        std::string garbage = {};
    };

    /// `target` is a port on 127.0.0.1. Throws `std::system_error` without a free port.
    explicit FaultyConnections(std::uint16_t target);
    ~FaultyConnections();
    FaultyConnections(const FaultyConnections&) = delete;
    FaultyConnections& operator=(const FaultyConnections&) = delete;

    [[nodiscard]] std::uint16_t port() const { return port_; }

    /// Happens once.
    void arm(Fault fault);
    /// Removes a fault that has not happened yet.
    void disarm();

    /// Bytes passed on since `arm` or the start.
    [[nodiscard]] std::size_t passed(Fault::Side side);

private:
    using Descriptor = tavrin::FileDescriptor;

    void run();
    void serve(const Descriptor& client);
    /// Returns whether the connection goes on.
    bool forward(Fault::Side side, const Descriptor& client, const Descriptor& service);
    /// Counts up to `size` bytes that may pass. Returns the fault if it happens behind them.
    std::optional<Fault> count(Fault::Side side, std::size_t& size);
    void cause(const Fault& fault, const Descriptor& client, const Descriptor& service) const;
    /// Waits until there is something to read, and returns of which. No value if the proxy ends.
    std::optional<int> wait(std::initializer_list<int> descriptors) const;

    const std::uint16_t target_;
    std::uint16_t port_ = 0;
    Descriptor listener_;
    /// Readable when the proxy ends.
    Descriptor end_;

    std::mutex mutex_;
    std::optional<Fault> fault_;
    std::size_t requestBytes_ = 0;
    std::size_t replyBytes_ = 0;

    /// Last, because it uses all of the others.
    std::thread thread_;
};

} // namespace orvel::test
