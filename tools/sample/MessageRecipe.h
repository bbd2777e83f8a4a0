// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/SampleMessages.h"
#include "tools/sample/SampleRandom.h"

#include <cstddef>
#include <cstdint>

namespace orvel {

/// What kind of message to generate, and how often it occurs.
struct MessageRecipe {
    enum class Kind {
        Words,
        ExactLength,
        Emoji,
        KeyedArchive,
        Attachment,
        Reaction,
        RemovedReaction,
        EmojiReaction,
        Sticker,
        Reply,
        Edited,
        Retracted,
        NoText,
        Event,
        IllFormedText,
        NULInText,
        CutArchive,
        IllFormedArchive,
        EmptyArchivedText,
        ArchiveWithoutText,
        MissingDate,
        ZeroDate,
        NegativeDate,
    };

    Kind kind = Kind::Words;
    /// How many of 100,000 messages are made with this recipe.
    std::size_t weight = 0;
    /// The minimum length of the text. For `Kind::ExactLength`, the exact length.
    std::size_t bytes = 0;
};

/// Draws from `random` unless the row is one of the early rows with a fixed recipe.
[[nodiscard]] const MessageRecipe&
recipeFor(std::int64_t rowID, const SampleMessages::Options& options, SampleRandom& random);

/// Whether the sample skips the row id, as if its message had been deleted.
[[nodiscard]] bool isDeletedMessage(std::int64_t rowID, const SampleMessages::Options& options);

} // namespace orvel
