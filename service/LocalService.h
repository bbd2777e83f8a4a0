// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/FaultScript.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvel::service {

class RecordStore;

/// The service contract over HTTPS on 127.0.0.1, with one SQLite file as its store.
///
/// For the first run, for self-hosting, and for tests, which can script how the next replies fail
/// and count what arrived. All functions may be called from any thread, except that `start()` and
/// `stop()` must not overlap.
class LocalService final {
public:
    struct Options {
        std::filesystem::path store;
        std::filesystem::path certificates;
        /// 0 is any free port.
        std::uint16_t port = 0;
        /// Without any, every bearer token is accepted.
        std::vector<std::string> tokens;
        /// Phone numbers and e-mail addresses, in any spelling.
        std::vector<std::string> knownHandles;
        /// Whether faults can be scripted and counts be read over HTTPS, too.
        bool hasControl = false;
        /// Where to append every request of the contract, without its token.
        std::optional<std::filesystem::path> capture;
        /// Gets one line per request, from any thread but never twice at once.
        std::function<void(std::string_view)> log;
    };

    /// Opens or makes store and certificates. Throws `ServiceError`.
    explicit LocalService(Options options);
    /// Stops.
    ~LocalService();
    LocalService(const LocalService&) = delete;
    LocalService& operator=(const LocalService&) = delete;

    /// Listens when it returns; after a stop, on the same port as before. Throws `ServiceError`.
    void start();
    /// Ends every delay and returns when the last reply has gone out.
    void stop();

    /// Spoils the replies to the next requests of the contract. Faults take effect in the order in
    /// which they were scripted.
    void script(Fault fault, std::size_t times = 1);
    void clearFaults();

    /// From now on requests with the token are answered as those of an expired session.
    void expireToken(std::string token);

    /// When any free port is wanted, 0 until the first start.
    [[nodiscard]] std::uint16_t port() const;
    /// Scheme, address and port, without a slash at the end.
    [[nodiscard]] std::string url() const;
    /// The certificate a client must trust, in PEM.
    [[nodiscard]] std::filesystem::path caFile() const;

    /// The requests that arrived, spoilt ones included; the page and the control do not count.
    [[nodiscard]] std::size_t requestCount() const;
    /// Of these, the ones to one path of the contract.
    [[nodiscard]] std::size_t requestCount(std::string_view path) const;
    /// Whether that many requests have arrived before the limit passed.
    [[nodiscard]] bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;

    /// The records kept, each once.
    [[nodiscard]] std::size_t storedCount() const;
    [[nodiscard]] const RecordStore& store() const;

private:
    class Implementation;

    std::unique_ptr<Implementation> implementation_;
};

} // namespace orvel::service
