// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Secret.h"

#include <boost/json/fwd.hpp>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// Recognizes a text that repeats values of a request, such as the error page of a proxy or of a
/// debug server. Such a text must not be shown or logged.
///
/// Also finds a value that the text escapes for JSON, HTML or a URL, and a part of a long value. A
/// short value also occurs in other texts. It counts only as a whole quoted string or a whole HTML
/// element, and a short number also as a word. Elsewhere the short value is taken out and the rest
/// is shown, except a single word of up to three letters, such as "ok", which says nothing.
///
/// The work grows with the length of the values plus that of the text. Use it on the worker, and
/// only after a failure. Wipes its copies, because values can be tokens.
class RequestEcho final {
public:
    /// A message text, a handle or a name.
    void add(std::string_view value);
    /// A token. Its exact text counts wherever it occurs, or as a word if it is short.
    void addSecret(std::string_view value);
    /// Adds all strings of the tree, but not the keys, and not the values of `publicKeys`.
    void
    addStrings(const boost::json::value& tree, std::span<const std::string_view> publicKeys = {});
    void addSecretStrings(const boost::json::value& tree);

    [[nodiscard]] bool isIn(std::string_view text) const;
    /// The start of the text, longer than what is shown of one, with a mark in place of each short
    /// value. Empty if the text repeats another value or has nothing else.
    [[nodiscard]] std::string takenOutOf(std::string_view text) const;

private:
    // As `Secret`, which is wiped.
    using Values = std::vector<tavrin::Secret>;

    Values secrets_;
    /// Short values as they are.
    Values quoted_;
    /// Short values with a digit.
    Values numbers_;
    /// The words of short values, in lower case, with a space between them.
    Values phrases_;
    /// Short values in scripts without spaces between words.
    Values wide_;
    /// The letters, digits and non-ASCII bytes of long values, in lower case.
    Values long_;
};

} // namespace orvel
