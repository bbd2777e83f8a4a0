// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"
#include "service/support/PrivateFile.h"

#include <cstddef>
#include <filesystem>
#include <mutex>
#include <utility>

namespace orvel::service {

/// Appends requests to a file that only the owner can read, so that the traffic can be searched.
/// Thread-safe.
class TrafficCapture final {
public:
    /// Whether the client has shown an accepted token.
    enum class Sender { Authorized, Stranger };

    /// All that is written of strangers' requests: another account of the machine must not be able
    /// to fill the disk.
    static constexpr std::size_t maximumStrangerBytes = std::size_t{1} << 20U;

    /// Throws `ServiceError`.
    explicit TrafficCapture(std::filesystem::path file)
        : file_(std::move(file), PrivateFile::Mode::Append) {}

    /// Writes the request without its tokens, its cookies and its query. Leaves out the body of a
    /// stranger, which could hold credentials or look like other requests. Path and headers have no
    /// line breaks and no other control characters. Throws `ServiceError`.
    void append(const Request& request, Sender sender);

private:
    std::mutex mutex_;
    PrivateFile file_;
    std::size_t strangerBytes_ = 0;
};

} // namespace orvel::service
