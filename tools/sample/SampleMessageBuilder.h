// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/AttributedBodyWriter.h"
#include "tools/sample/MessageRecipe.h"
#include "tools/sample/SampleConversations.h"
#include "tools/sample/SampleMessages.h"
#include "tools/sample/SampleRandom.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orvel {

/// Generates the message of one row. The arguments of the constructor must outlive it.
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

} // namespace orvel
