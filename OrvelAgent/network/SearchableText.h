// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// Decodes the escape sequences of JSON, HTML and URLs in place, also those that are escaped again,
/// such as JSON in an HTML page. Wipes the bytes by which the text gets shorter.
void unescape(std::string& text);

/// ASCII only.
void lowercase(std::string& text);

/// A text without escape sequences and in lower case, which knows where its bytes come from.
class SearchableText final {
public:
    /// A part of a text.
    struct Range {
        std::size_t begin = 0;
        std::size_t end = 0;
    };

    explicit SearchableText(std::string_view source);

    [[nodiscard]] std::string_view text() const { return text_; }

    /// Where the range is in the source.
    [[nodiscard]] Range origin(Range range) const {
        return {origins_[range.begin], origins_[range.end]};
    }

private:
    std::string text_;
    /// Where the bytes of the text come from, and the end of the text.
    std::vector<std::size_t> origins_;
};

} // namespace orvel
