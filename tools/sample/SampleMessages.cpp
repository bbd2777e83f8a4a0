// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/SampleMessages.h"

#include "tools/sample/MessageRecipe.h"
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

/// Random streams that do not overlap with the message streams, which are numbered by row id.
constexpr std::uint64_t chatStream = 2ULL << 40U;
constexpr std::uint64_t guidStream = 3ULL << 40U;

constexpr std::string_view attachmentCharacter = "\uFFFC";

std::string guidOf(std::int64_t rowID, const SampleMessages::Options& options) {
    SampleRandom random(options.seed, guidStream + static_cast<std::uint64_t>(rowID));
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

/// A text such as "(#12)", which only this message contains.
std::string markerOf(std::int64_t rowID) {
    return fmt::format("(#{})", rowID);
}

/// A well-formed typed stream without text.
Blob typedStreamWithoutText() {
    TypedStreamWriter writer;
    writer.beginObject({{"NSObject", 0}});
    writer.endObject();
    return writer.take();
}

/// Generates the message of one row. It borrows the arguments of its constructor.
class SampleMessageBuilder final {
public:
    SampleMessageBuilder(
        std::int64_t rowID,
        const SampleMessages::Options& options,
        const SampleConversations& conversations);

    /// Call it once.
    [[nodiscard]] SampleMessages::Message build();

private:
    void chooseChatAndSender();
    void write(const MessageRecipe& recipe);
    void writeEvent();
    void react(int firstType);
    void associate(int type);
    std::string quotation();
    AttributedBody::Part attachment();
    /// At least `bytes` bytes of phrases, then the marker and sometimes a trailing space.
    std::string markedText(std::size_t bytes);
    bool isMutable();
    std::string earlierGUID();
    /// Stores the text archived (most often), archived and plain, or plain.
    void store(std::vector<AttributedBody::Part> parts);
    void storeArchived(const AttributedBody& body);
    /// Cuts the archive off after the first `bytes` bytes of its text.
    void truncateArchive(std::size_t bytes);

    SampleRandom random_;
    const SampleMessages::Options& options_;
    const SampleConversations& conversations_;
    const SampleConversations::Chat* chat_ = nullptr;
    SampleMessages::Message message_;
};

SampleMessageBuilder::SampleMessageBuilder(
    std::int64_t rowID,
    const SampleMessages::Options& options,
    const SampleConversations& conversations)
    : random_(options.seed, static_cast<std::uint64_t>(rowID)),
      options_(options),
      conversations_(conversations) {
    message_.rowID = rowID;
    message_.guid = guidOf(rowID, options);
}

SampleMessages::Message SampleMessageBuilder::build() {
    chooseChatAndSender();
    write(recipeFor(message_.rowID, options_, random_));
    return std::move(message_);
}

void SampleMessageBuilder::chooseChatAndSender() {
    // Four consecutive messages share a chat, and the first chats have the most messages.
    const auto& chats = conversations_.chats();
    SampleRandom chatRandom(
        options_.seed, chatStream + static_cast<std::uint64_t>(message_.rowID / 4));
    const std::size_t index = chatRandom.below(1 + chatRandom.below(chats.size()));
    chat_ = &chats[index];

    if (!random_.chance(options_.orphanShare)) {
        message_.chats = {index};
        if (chats.size() > 1 && random_.chance(options_.twoChatShare)) {
            message_.chats.push_back((index + 1 + random_.below(chats.size() - 1)) % chats.size());
        }
    }
    message_.service = chat_->service;
    message_.isFromMe = random_.chance(0.45);
    const auto sender = static_cast<std::int64_t>(
        1 + chat_->participants[random_.below(chat_->participants.size())]);
    if (!message_.isFromMe) {
        constexpr std::int64_t missingHandleOffset = 900'000;
        message_.handleID = random_.chance(0.003) ? missingHandleOffset + sender : sender;
    } else if (!chat_->isGroup && random_.chance(0.1)) {
        message_.handleID = sender;
    }
    if (random_.chance(options_.secondsDatesShare)) {
        message_.dateForm = SampleMessages::DateForm::Seconds;
    }
    if (random_.chance(0.01)) {
        constexpr std::size_t secondsInThreeDays = 259'200;
        message_.delay = std::chrono::seconds(random_.below(secondsInThreeDays));
    }
}

void SampleMessageBuilder::write(const MessageRecipe& recipe) {
    using Kind = MessageRecipe::Kind;
    switch (recipe.kind) {
    case Kind::Words:
        if (recipe.bytes > 0) {
            storeArchived({{{markedText(recipe.bytes)}}, isMutable()});
        } else {
            store({{markedText(8 + random_.below(60))}});
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
        message_.body = markedText(8);
        message_.attributedBody = keyedArchive({{{*message_.body}}, isMutable()});
        break;
    case Kind::Attachment:
        store({attachment(), {markedText(8)}});
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
        store({{markedText(8)}});
        break;
    case Kind::Edited:
        message_.isEdited = true;
        store({{markedText(8)}});
        break;
    case Kind::Retracted:
        message_.isRetracted = true;
        message_.partCount = 0;
        break;
    case Kind::NoText:
        // A missing text may also be stored as an empty blob.
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
        message_.text = markedText(8) + std::string(1, '\0') + "and more";
        message_.body = message_.text;
        break;
    case Kind::CutArchive: {
        const std::string text = markedText(recipe.bytes);
        storeArchived({{{text}}, isMutable()});
        truncateArchive(text.size() / 2);
        break;
    }
    case Kind::IllFormedArchive:
        storeArchived({{{markedText(8) + "\xFF"}}, isMutable()});
        message_.body.reset();
        break;
    case Kind::EmptyArchivedText:
        storeArchived({{{}}, isMutable()});
        message_.body.reset();
        break;
    case Kind::ArchiveWithoutText:
        message_.attributedBody = typedStreamWithoutText();
        break;
    case Kind::MissingDate:
        message_.dateForm = SampleMessages::DateForm::Missing;
        store({{markedText(8)}});
        break;
    case Kind::ZeroDate:
        message_.dateForm = SampleMessages::DateForm::Zero;
        store({{markedText(8)}});
        break;
    case Kind::NegativeDate:
        message_.dateForm = SampleMessages::DateForm::Negative;
        store({{markedText(8)}});
        break;
    }
}

void SampleMessageBuilder::writeEvent() {
    // The events 1 to 3 (members, names) occur in groups only.
    message_.itemType = static_cast<int>((chat_->isGroup ? 1 : 4) + random_.below(3));
    if (message_.itemType == 1) {
        message_.groupActionType = static_cast<int>(random_.below(2));
    } else if (message_.itemType == 2) {
        message_.groupTitle = markedText(8);
    }
}

void SampleMessageBuilder::react(int firstType) {
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

void SampleMessageBuilder::associate(int type) {
    message_.associatedType = type;
    message_.associatedGUID = "p:0/" + earlierGUID();
}

std::string SampleMessageBuilder::quotation() {
    return fmt::format(
        "“{}” {}", SampleText::phrase(random_, chat_->language), markerOf(message_.rowID));
}

AttributedBody::Part SampleMessageBuilder::attachment() {
    message_.hasAttachments = true;
    return {std::string(attachmentCharacter), "at_0_" + message_.guid};
}

std::string SampleMessageBuilder::markedText(std::size_t bytes) {
    const std::size_t language =
        random_.chance(0.9) ? chat_->language : random_.below(SampleText::languageCount);
    std::string text = SampleText::phrases(random_, language, bytes);
    text += ' ' + markerOf(message_.rowID);
    if (random_.chance(0.02)) {
        text += ' ';
    }
    return text;
}

bool SampleMessageBuilder::isMutable() {
    return random_.chance(0.8);
}

std::string SampleMessageBuilder::earlierGUID() {
    auto rowID = message_.rowID - 1 - static_cast<std::int64_t>(random_.below(5));
    while (isDeletedMessage(rowID, options_)) {
        --rowID;
    }
    return guidOf(std::max<std::int64_t>(rowID, 1), options_);
}

void SampleMessageBuilder::store(std::vector<AttributedBody::Part> parts) {
    message_.partCount = static_cast<int>(parts.size());
    AttributedBody body{std::move(parts)};
    std::string text = body.text();
    const std::size_t percentile = random_.below(100);
    if (percentile < 82) {
        body.isMutable = isMutable();
        storeArchived(body);
    }
    if (percentile >= 57) {
        message_.text = text;
    } else if (percentile >= 55) {
        message_.text.emplace();
    }
    message_.body = std::move(text);
}

void SampleMessageBuilder::storeArchived(const AttributedBody& body) {
    message_.attributedBody = typedStream(body);
    message_.body = body.text();
}

void SampleMessageBuilder::truncateArchive(std::size_t bytes) {
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

} // namespace

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
