// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"
#include "service/support/PrivateFile.h"

#include <filesystem>
#include <mutex>
#include <utility>

namespace orvel::service {

/// Appends requests to a file that only the owner can read, so that the traffic can be searched.
/// Thread-safe.
class TrafficCapture final {
public:
    /// Throws `ServiceError`.
    explicit TrafficCapture(std::filesystem::path file)
        : file_(std::move(file), PrivateFile::Mode::Append) {}

    enum class Body { Kept, LeftOut };

    /// Writes the request without its bearer token, its cookies and its query, and without its body
    /// if that is to be left out. Throws `ServiceError`.
    void append(const Request& request, Body body);

private:
    std::mutex mutex_;
    PrivateFile file_;
};

} // namespace orvel::service
