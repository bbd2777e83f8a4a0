// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "bench/fleet/Fleet.h"

#include <array>
#include <cstddef>
#include <filesystem>

namespace orvel::bench {

/// What the agent's requests weigh, in bytes of HTTP/1.1 before encryption.
struct PayloadSizes {
    [[nodiscard]] double& of(Fleet::Call call) { return requests[static_cast<std::size_t>(call)]; }

    /// Request line, headers and body, by call. `Ingest` is without records, `Diagnostics` after a
    /// scan without new messages, and the calls of the identity provider are 0.
    std::array<double, Fleet::callCount> requests{};
    /// One message in an upload.
    double record = 0;
    /// The share of the rows of the history that are uploaded.
    double uploadedShare = 0;
    /// One known handle in the reply to the digest.
    double hint = 0;
};

/// Runs an agent in this process over a sample of that many messages, with fakes for the platform,
/// and weighs what it sends. The bearer tokens count as `tokenBytes` each. Writes into the
/// directory. Needs an application object.
[[nodiscard]] PayloadSizes measurePayloads(
    const std::filesystem::path& directory, std::int64_t messages, std::size_t tokenBytes);

} // namespace orvel::bench
