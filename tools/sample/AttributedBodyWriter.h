// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orvel {

/// A message text with its attributes, the content of the `attributedBody` column.
struct AttributedBody {
    /// A text part, or the placeholder of an attachment.
    struct Part {
        std::string text;
        /// Empty for text.
        std::string attachmentGUID = {};
    };

    std::vector<Part> parts;
    /// Whether the archive uses the mutable classes. Real databases contain both kinds.
    bool isMutable = true;

    [[nodiscard]] std::string text() const;
};

using Blob = std::vector<std::uint8_t>;

/// The typed-stream layout, which Messages writes.
[[nodiscard]] Blob typedStream(const AttributedBody& body);

/// The newer layout, a binary property list. It omits the attributes.
[[nodiscard]] Blob keyedArchive(const AttributedBody& body);

} // namespace orvel
