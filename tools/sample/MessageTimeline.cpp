// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/MessageTimeline.h"

#include "core/messages/AppleEpoch.h"
#include "tools/sample/SampleRandom.h"

#include <algorithm>

namespace orvel {

MessageTimeline::MessageTimeline(
    std::int64_t oldest, std::int64_t newest, std::int64_t messageCount, std::uint64_t seed)
    // Smaller values would be read as seconds.
    : oldest_(std::max(oldest, tavrin::AppleEpoch::nanosecondDivide)),
      newest_(newest),
      messageCount_(messageCount),
      distance_(
          std::max<std::int64_t>(1, (newest_ - oldest_) / std::max<std::int64_t>(1, messageCount))),
      seed_(seed) {}

std::int64_t
MessageTimeline::time(std::int64_t ordinal, const SampleMessages::Message& message) const {
    const std::int64_t later = messageCount_ - 1 - ordinal;
    if (later == 0) {
        return newest_;
    }
    constexpr std::uint64_t stream = 4ULL << 40U;
    SampleRandom random(seed_, stream + static_cast<std::uint64_t>(message.rowID));
    const auto jitter =
        static_cast<std::int64_t>(random.below(static_cast<std::size_t>(distance_)));
    return std::max<std::int64_t>(
        oldest_, newest_ - distance_ * later - jitter - message.delay.count());
}

} // namespace orvel
