// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/SampleMessages.h"

#include <cstdint>

namespace orvel {

/// Assigns sent times to the messages of a sample, evenly spaced with some jitter. All times are
/// nanoseconds on the time scale of the Messages database.
class MessageTimeline final {
public:
    MessageTimeline(
        std::int64_t oldest, std::int64_t newest, std::int64_t messageCount, std::uint64_t seed);

    /// The last message gets exactly the newest time.
    [[nodiscard]] std::int64_t
    time(std::int64_t ordinal, const SampleMessages::Message& message) const;

private:
    std::int64_t oldest_;
    std::int64_t newest_;
    std::int64_t messageCount_;
    std::int64_t distance_;
    std::uint64_t seed_;
};

} // namespace orvel
