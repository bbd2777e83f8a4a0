// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/MessageRecipe.h"

#include <array>

namespace orvel {

namespace {

using Kind = MessageRecipe::Kind;

/// Keeps deletions independent of the message streams, which are numbered by row id.
constexpr std::uint64_t deletionStream = 1ULL << 40U;

/// The shortest texts whose length takes two and four bytes in an archive.
constexpr std::size_t longText = 0x80;
constexpr std::size_t hugeText = 0x10000;

constexpr std::array commonRecipes = {
    MessageRecipe{Kind::Words, 77'000},
    MessageRecipe{Kind::Words, 5'000, longText},
    MessageRecipe{Kind::Words, 5, hugeText},
    MessageRecipe{Kind::ExactLength, 0, longText - 1},
    MessageRecipe{Kind::ExactLength, 0, longText},
    MessageRecipe{Kind::ExactLength, 0, hugeText - 1},
    MessageRecipe{Kind::ExactLength, 0, hugeText},
    MessageRecipe{Kind::Emoji, 4'000},
    MessageRecipe{Kind::KeyedArchive, 245},
    MessageRecipe{Kind::Attachment, 4'000},
    MessageRecipe{Kind::Reaction, 5'000},
    MessageRecipe{Kind::RemovedReaction, 300},
    MessageRecipe{Kind::EmojiReaction, 500},
    MessageRecipe{Kind::Sticker, 100},
    MessageRecipe{Kind::Reply, 1'500},
    MessageRecipe{Kind::Edited, 400},
    MessageRecipe{Kind::Retracted, 150},
    MessageRecipe{Kind::NoText, 300},
    MessageRecipe{Kind::Event, 1'500}};

constexpr std::array nastyRecipes = {
    MessageRecipe{Kind::IllFormedText},
    MessageRecipe{Kind::NULInText},
    MessageRecipe{Kind::CutArchive, 0, longText},
    MessageRecipe{Kind::IllFormedArchive},
    MessageRecipe{Kind::EmptyArchivedText},
    MessageRecipe{Kind::ArchiveWithoutText},
    MessageRecipe{Kind::MissingDate},
    MessageRecipe{Kind::ZeroDate},
    MessageRecipe{Kind::NegativeDate}};

constexpr std::size_t totalWeight() {
    std::size_t total = 0;
    for (const MessageRecipe& recipe : commonRecipes) {
        total += recipe.weight;
    }
    return total;
}

/// Every seventh of the early rows has a fixed recipe, so that even small samples contain each
/// kind. Null for all other rows.
const MessageRecipe* fixedRecipe(std::int64_t rowID, const SampleMessages::Options& options) {
    if (rowID % 7 != 3) {
        return nullptr;
    }
    const auto index = static_cast<std::size_t>(rowID / 7);
    if (index < commonRecipes.size()) {
        return &commonRecipes[index];
    }
    const std::size_t nastyIndex = index - commonRecipes.size();
    return options.nastyShare > 0 && nastyIndex < nastyRecipes.size() ? &nastyRecipes[nastyIndex]
                                                                      : nullptr;
}

} // namespace

const MessageRecipe&
recipeFor(std::int64_t rowID, const SampleMessages::Options& options, SampleRandom& random) {
    if (const MessageRecipe* recipe = fixedRecipe(rowID, options)) {
        return *recipe;
    }
    if (random.chance(options.nastyShare)) {
        return random.pick(nastyRecipes);
    }
    std::size_t remaining = random.below(totalWeight());
    const MessageRecipe* recipe = commonRecipes.data();
    while (remaining >= recipe->weight) {
        remaining -= recipe->weight;
        ++recipe;
    }
    return *recipe;
}

bool isDeletedMessage(std::int64_t rowID, const SampleMessages::Options& options) {
    constexpr std::int64_t firstFew = 8;
    return rowID > firstFew && fixedRecipe(rowID, options) == nullptr &&
           SampleRandom(options.seed, deletionStream + static_cast<std::uint64_t>(rowID))
               .chance(0.025);
}

} // namespace orvel
