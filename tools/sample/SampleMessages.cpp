// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleMessages.h"

#include "tools/sample/SampleRandom.h"
#include "tools/sample/SampleText.h"
#include "tools/sample/TypedStreamWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

using Message = SampleMessages::Message;
using Options = SampleMessages::Options;

/// Streams of random numbers apart from the messages' own, which are numbered by row id.
constexpr std::uint64_t deletions = 1ULL << 40U;
constexpr std::uint64_t turns = 2ULL << 40U;
constexpr std::uint64_t identifiers = 3ULL << 40U;

/// The first lengths that need two bytes and four.
constexpr std::size_t longText = 0x80;
constexpr std::size_t hugeText = 0x10000;

constexpr std::string_view attachmentCharacter = "\uFFFC";

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

struct Recipe {
    Kind kind = Kind::Words;
    /// In 100,000 messages.
    std::size_t weight = 0;
    /// The least length of the text; the very length for `Kind::ExactLength`.
    std::size_t bytes = 0;
};

constexpr std::array usualRecipes = {
    Recipe{Kind::Words, 77'000},
    Recipe{Kind::Words, 5'000, longText},
    Recipe{Kind::Words, 5, hugeText},
    Recipe{Kind::ExactLength, 0, longText - 1},
    Recipe{Kind::ExactLength, 0, longText},
    Recipe{Kind::ExactLength, 0, hugeText - 1},
    Recipe{Kind::ExactLength, 0, hugeText},
    Recipe{Kind::Emoji, 4'000},
    Recipe{Kind::KeyedArchive, 245},
    Recipe{Kind::Attachment, 4'000},
    Recipe{Kind::Reaction, 5'000},
    Recipe{Kind::RemovedReaction, 300},
    Recipe{Kind::EmojiReaction, 500},
    Recipe{Kind::Sticker, 100},
    Recipe{Kind::Reply, 1'500},
    Recipe{Kind::Edited, 400},
    Recipe{Kind::Retracted, 150},
    Recipe{Kind::NoText, 300},
    Recipe{Kind::Event, 1'500}};

constexpr std::array nastyRecipes = {
    Recipe{Kind::IllFormedText},
    Recipe{Kind::NULInText},
    Recipe{Kind::CutArchive, 0, longText},
    Recipe{Kind::IllFormedArchive},
    Recipe{Kind::EmptyArchivedText},
    Recipe{Kind::ArchiveWithoutText},
    Recipe{Kind::MissingDate},
    Recipe{Kind::ZeroDate},
    Recipe{Kind::NegativeDate}};

constexpr std::size_t totalWeight() {
    std::size_t total = 0;
    for (const Recipe& recipe : usualRecipes) {
        total += recipe.weight;
    }
    return total;
}

/// Early rows, spread out, go through all recipes once: rare ones are then in every sample that is
/// not tiny. Nothing for all other rows.
const Recipe* showcased(std::int64_t rowID, const Options& options) {
    if (rowID % 7 != 3) {
        return nullptr;
    }
    const auto index = static_cast<std::size_t>(rowID / 7);
    if (index < usualRecipes.size()) {
        return &usualRecipes[index];
    }
    const std::size_t nastyIndex = index - usualRecipes.size();
    return options.nastyShare > 0 && nastyIndex < nastyRecipes.size() ? &nastyRecipes[nastyIndex]
                                                                      : nullptr;
}

const Recipe& chosenRecipe(std::int64_t rowID, const Options& options, SampleRandom& random) {
    if (const Recipe* recipe = showcased(rowID, options)) {
        return *recipe;
    }
    if (random.chance(options.nastyShare)) {
        return random.pick(nastyRecipes);
    }
    std::size_t ticket = random.below(totalWeight());
    const Recipe* recipe = usualRecipes.data();
    while (ticket >= recipe->weight) {
        ticket -= recipe->weight;
        ++recipe;
    }
    return *recipe;
}

bool isDeleted(std::int64_t rowID, const Options& options) {
    constexpr std::int64_t firstFew = 8;
    return rowID > firstFew && showcased(rowID, options) == nullptr &&
           SampleRandom(options.seed, deletions + static_cast<std::uint64_t>(rowID)).chance(0.025);
}

std::string guidOf(std::int64_t rowID, const Options& options) {
    SampleRandom random(options.seed, identifiers + static_cast<std::uint64_t>(rowID));
    const std::uint64_t high = random.next();
    const std::uint64_t low = random.next();
    return fmt::format(
        "{:08X}-{:04X}-4{:03X}-{:04X}-{:012X}",
        high >> 32U,
        (high >> 16U) & 0xFFFFU,
        high & 0xFFFU,
        0x8000U | ((low >> 48U) & 0x3FFFU),
        low & 0xFFFFFFFFFFFFU);
}

/// "(#12)", which no other message contains.
std::string markerOf(std::int64_t rowID) {
    return fmt::format("(#{})", rowID);
}

std::string joined(const std::vector<AttributedBody::Part>& parts) {
    std::string text;
    for (const auto& part : parts) {
        text += part.text;
    }
    return text;
}

/// Makes one message.
class Draft final {
public:
    Draft(std::int64_t rowID, const Options& options, const SampleConversations& conversations)
        : random_(options.seed, static_cast<std::uint64_t>(rowID)),
          options_(options),
          conversations_(conversations) {
        message_.rowID = rowID;
        message_.guid = guidOf(rowID, options);
    }

    Message finished() {
        choosePlace();
        write(chosenRecipe(message_.rowID, options_, random_));
        return std::move(message_);
    }

private:
    void choosePlace() {
        // A few messages in a row are one exchange; the first chats are the busiest.
        const auto& chats = conversations_.chats();
        SampleRandom turn(options_.seed, turns + static_cast<std::uint64_t>(message_.rowID / 4));
        const std::size_t index = turn.below(1 + turn.below(chats.size()));
        chat_ = &chats[index];

        if (!random_.chance(options_.orphanShare)) {
            message_.chats = {index};
            if (chats.size() > 1 && random_.chance(options_.twoChatShare)) {
                message_.chats.push_back(
                    (index + 1 + random_.below(chats.size() - 1)) % chats.size());
            }
        }
        message_.service = chat_->service;
        message_.isFromMe = random_.chance(0.45);
        const auto writer = static_cast<std::int64_t>(
            1 + chat_->participants[random_.below(chat_->participants.size())]);
        if (!message_.isFromMe) {
            constexpr std::int64_t beyondAllHandles = 900'000;
            message_.handleID = random_.chance(0.003) ? beyondAllHandles + writer : writer;
        } else if (!chat_->isGroup && random_.chance(0.1)) {
            message_.handleID = writer;
        }
        if (random_.chance(options_.secondsDatesShare)) {
            message_.dateForm = SampleMessages::DateForm::Seconds;
        }
        if (random_.chance(0.01)) {
            constexpr std::size_t secondsOfThreeDays = 259'200;
            message_.delay = std::chrono::seconds(random_.below(secondsOfThreeDays));
        }
    }

    void write(const Recipe& recipe) {
        switch (recipe.kind) {
        case Kind::Words:
            if (recipe.bytes > 0) {
                storeArchived({{{words(recipe.bytes)}}, isMutable()});
            } else {
                store({{words(8 + random_.below(60))}});
            }
            break;
        case Kind::ExactLength: {
            std::string text = markerOf(message_.rowID) + ' ';
            text.resize(recipe.bytes, '~');
            storeArchived({{{std::move(text)}}, isMutable()});
            break;
        }
        case Kind::Emoji: {
            std::string text(SampleText::emoji(random_));
            for (std::size_t more = random_.below(3); more > 0; --more) {
                text += SampleText::emoji(random_);
            }
            store({{text + ' ' + markerOf(message_.rowID)}});
            break;
        }
        case Kind::KeyedArchive:
            message_.body = words(8);
            message_.attributedBody = keyedArchive({{{*message_.body}}, isMutable()});
            break;
        case Kind::Attachment:
            store({attachment(), {words(8)}});
            break;
        case Kind::Reaction:
            react(2000);
            break;
        case Kind::RemovedReaction:
            react(3000);
            break;
        case Kind::EmojiReaction:
            associate(2006);
            message_.associatedEmoji = SampleText::emoji(random_);
            store({{fmt::format("Reacted {} to {}", message_.associatedEmoji, quotation())}});
            break;
        case Kind::Sticker:
            associate(1000);
            store({attachment(), {' ' + markerOf(message_.rowID)}});
            break;
        case Kind::Reply:
            message_.threadOriginatorGUID = earlierGUID();
            store({{words(8)}});
            break;
        case Kind::Edited:
            message_.isEdited = true;
            store({{words(8)}});
            break;
        case Kind::Retracted:
            message_.isRetracted = true;
            message_.partCount = 0;
            break;
        case Kind::NoText:
            // An empty blob and no blob both mean that there is none.
            if (random_.chance(0.5)) {
                message_.attributedBody.emplace();
            }
            break;
        case Kind::Event:
            writeEvent();
            break;
        case Kind::IllFormedText:
            message_.text = "caf\xE9 " + markerOf(message_.rowID) + " \xF0\x9F";
            message_.body = "caf\uFFFD " + markerOf(message_.rowID) + " \uFFFD";
            break;
        case Kind::NULInText:
            message_.text = words(8) + std::string(1, '\0') + "and more";
            message_.body = message_.text;
            break;
        case Kind::CutArchive: {
            const std::string text = words(recipe.bytes);
            storeArchived({{{text}}, isMutable()});
            cut(text.size() / 2);
            break;
        }
        case Kind::IllFormedArchive:
            storeArchived({{{words(8) + "\xFF"}}, isMutable()});
            message_.body.reset();
            break;
        case Kind::EmptyArchivedText:
            storeArchived({{{}}, isMutable()});
            message_.body.reset();
            break;
        case Kind::ArchiveWithoutText:
            message_.attributedBody = archivedObject();
            break;
        case Kind::MissingDate:
            message_.dateForm = SampleMessages::DateForm::Missing;
            store({{words(8)}});
            break;
        case Kind::ZeroDate:
            message_.dateForm = SampleMessages::DateForm::Zero;
            store({{words(8)}});
            break;
        case Kind::NegativeDate:
            message_.dateForm = SampleMessages::DateForm::Negative;
            store({{words(8)}});
            break;
        }
    }

    void writeEvent() {
        // Members and names change in groups only; the rest happens anywhere.
        message_.itemType = static_cast<int>((chat_->isGroup ? 1 : 4) + random_.below(3));
        if (message_.itemType == 1) {
            message_.groupActionType = static_cast<int>(random_.below(2));
        } else if (message_.itemType == 2) {
            message_.groupTitle = words(8);
        }
    }

    void react(int firstType) {
        constexpr std::array<std::pair<std::string_view, std::string_view>, 6> verbs = {{
            {"Loved", "Removed a heart from"},
            {"Liked", "Removed a like from"},
            {"Disliked", "Removed a dislike from"},
            {"Laughed at", "Removed a laugh from"},
            {"Emphasized", "Removed an exclamation from"},
            {"Questioned", "Removed a question mark from"},
        }};
        const std::size_t verb = random_.below(verbs.size());
        associate(firstType + static_cast<int>(verb));
        const auto& [added, removed] = verbs[verb];
        store({{fmt::format("{} {}", firstType == 2000 ? added : removed, quotation())}});
    }

    void associate(int type) {
        message_.associatedType = type;
        message_.associatedGUID = "p:0/" + earlierGUID();
    }

    std::string quotation() {
        return fmt::format(
            "“{}” {}", SampleText::phrase(random_, chat_->language), markerOf(message_.rowID));
    }

    AttributedBody::Part attachment() {
        message_.hasAttachments = true;
        return {std::string(attachmentCharacter), "at_0_" + message_.guid};
    }

    /// At least so many bytes of phrases and the marker; now and then with a space at the end.
    std::string words(std::size_t bytes) {
        const std::size_t language =
            random_.chance(0.9) ? chat_->language : random_.below(SampleText::languageCount);
        std::string text = SampleText::phrases(random_, language, bytes);
        text += ' ' + markerOf(message_.rowID);
        if (random_.chance(0.02)) {
            text += ' ';
        }
        return text;
    }

    bool isMutable() { return random_.chance(0.8); }

    std::string earlierGUID() {
        auto rowID = message_.rowID - 1 - static_cast<std::int64_t>(random_.below(5));
        while (isDeleted(rowID, options_)) {
            --rowID;
        }
        return guidOf(std::max<std::int64_t>(rowID, 1), options_);
    }

    /// In one of the ways that occur: only archived (mostly), archived and plain, only plain.
    void store(std::vector<AttributedBody::Part> parts) {
        message_.partCount = static_cast<int>(parts.size());
        std::string text = joined(parts);
        const std::size_t way = random_.below(100);
        if (way < 82) {
            storeArchived({std::move(parts), isMutable()});
        }
        if (way >= 57) {
            message_.text = text;
        } else if (way >= 55) {
            message_.text.emplace();
        }
        message_.body = std::move(text);
    }

    void storeArchived(const AttributedBody& body) {
        message_.attributedBody = typedStream(body);
        message_.body = joined(body.parts);
    }

    /// Cuts the archive so many bytes into its text.
    void cut(std::size_t bytes) {
        Blob& archive = *message_.attributedBody;
        const std::string& text = *message_.body;
        const auto start = std::search(
            archive.begin(),
            archive.end(),
            text.begin(),
            text.end(),
            [](std::uint8_t byte, char character) {
                return byte == static_cast<std::uint8_t>(character);
            });
        archive.resize(static_cast<std::size_t>(start - archive.begin()) + bytes);
        message_.body.reset();
    }

    /// A typed stream that is well-formed and holds no text.
    static Blob archivedObject() {
        TypedStreamWriter writer;
        writer.writeType("@");
        writer.beginObject({{"NSObject", 0}});
        writer.endObject();
        return writer.take();
    }

    SampleRandom random_;
    const Options& options_;
    const SampleConversations& conversations_;
    const SampleConversations::Chat* chat_ = nullptr;
    Message message_;
};

} // namespace

SampleMessages::SampleMessages(const Options& options)
    : options_(options), conversations_(options.seed, options.chatCount) {}

std::optional<SampleMessages::Message> SampleMessages::message(std::int64_t rowID) const {
    if (isDeleted(rowID, options_)) {
        return std::nullopt;
    }
    return Draft(rowID, options_, conversations_).finished();
}

int SampleMessages::chatCountFor(std::int64_t messageCount) {
    return static_cast<int>(std::clamp<std::int64_t>(messageCount / 500, 12, 2'000));
}

} // namespace orvel
