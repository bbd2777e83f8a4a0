// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace orvel {

/// A message text with its attributes, as Messages archives it into the `attributedBody` column.
struct AttributedBody {
    /// Text that is one part of the message, or stands for one attachment.
    struct Part {
        std::string text;
        /// Empty for text.
        std::string attachmentGUID = {};
    };

    std::vector<Part> parts;
    /// Archived with the mutable classes; both kinds occur.
    bool isMutable = true;
};

using Blob = std::vector<std::uint8_t>;

/// The layout that Messages writes.
[[nodiscard]] Blob typedStream(const AttributedBody& body);

/// The newer layout, a binary property list. The attributes are left out.
[[nodiscard]] Blob keyedArchive(const AttributedBody& body);

} // namespace orvel
