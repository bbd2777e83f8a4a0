// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleMessages.h"

#include "tools/sample/MessageRecipe.h"
#include "tools/sample/SampleMessageBuilder.h"

#include <algorithm>

namespace orvel {

SampleMessages::SampleMessages(const Options& options)
    : options_(options), conversations_(options.seed, options.chatCount) {}

std::optional<SampleMessages::Message> SampleMessages::message(std::int64_t rowID) const {
    if (isDeletedMessage(rowID, options_)) {
        return std::nullopt;
    }
    return SampleMessageBuilder(rowID, options_, conversations_).build();
}

int SampleMessages::chatCountFor(std::int64_t messageCount) {
    return static_cast<int>(std::clamp<std::int64_t>(messageCount / 500, 12, 2'000));
}

} // namespace orvel
