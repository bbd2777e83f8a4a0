// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/http/HTTP.h"
#include "service/support/PrivateFile.h"

#include <filesystem>
#include <mutex>
#include <utility>

namespace orvel::service {

/// Appends requests to a file, readable by its owner only, so that the traffic can be searched.
/// Usable from several threads.
class TrafficCapture final {
public:
    /// Throws `ServiceError`.
    explicit TrafficCapture(std::filesystem::path file)
        : file_(std::move(file), PrivateFile::Mode::Append) {}

    enum class Body { Kept, LeftOut };

    /// Everything but the bearer token, the query and, if it is to be left out, the body. Throws
    /// `ServiceError`.
    void append(const Request& request, Body body);

private:
    std::mutex mutex_;
    PrivateFile file_;
};

} // namespace orvel::service
