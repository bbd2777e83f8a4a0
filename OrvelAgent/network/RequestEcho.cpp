// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/RequestEcho.h"

#include "OrvelAgent/network/PartIndex.h"
#include "OrvelAgent/network/SearchableText.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <functional>
#include <utility>

namespace orvel {

namespace {

/// Shorter values, and single words below `longWord`, could be in the text by chance.
constexpr std::size_t longValue = PartIndex::shortestValue;
/// A text that has a part of a value of this length counts as containing the value.
constexpr std::size_t longWord = PartIndex::longestPart;
/// Parts of shorter secrets could be ordinary words.
constexpr std::size_t longSecret = 32;
constexpr std::size_t shortestNumber = 4;
/// Shorter words are too common to be taken out.
constexpr std::size_t shortestWord = 4;
constexpr std::string_view ellipsis = "[\u2026]";
/// Longer than what is shown of a text, and how much more of it is searched.
constexpr std::size_t longestShown = std::size_t{60} * 1024;
constexpr std::size_t longestMatch = std::size_t{4} * 1024;

/// A copy of a text that is wiped.
struct Buffer {
    explicit Buffer(std::string_view content) : text(content) {}
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    ~Buffer() { tavrin::wipe(text); }

    std::string text;
};

constexpr bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

constexpr bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

constexpr bool isNotASCII(char character) {
    return static_cast<unsigned char>(character) >= 0x80;
}

/// By byte. A table, because each byte of each text is looked up several times.
constexpr auto inWord = [] {
    std::array<bool, 256> result{};
    for (std::size_t byte = 0; byte < result.size(); ++byte) {
        const auto character = static_cast<char>(byte);
        result[byte] = isLetter(character) || isDigit(character) || isNotASCII(character);
    }
    return result;
}();

bool isInWord(char character) {
    return inWord[static_cast<unsigned char>(character)];
}

std::string_view trimmedASCII(std::string_view text) {
    const auto isSpace = [](char character) {
        return static_cast<unsigned char>(character) <= ' ';
    };
    const auto first = std::ranges::find_if_not(text, isSpace);
    text.remove_prefix(static_cast<std::size_t>(first - text.begin()));
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

/// Leaves out all that wrapping, quoting or a different escape could change.
void keepWords(std::string& text) {
    const auto end = std::remove_if(text.begin(), text.end(), std::not_fn(isInWord));
    std::fill(end, text.end(), '\0');
    text.erase(end, text.end());
}

using ViewSet = PartIndex::Values;

ViewSet viewsOf(const std::vector<tavrin::Secret>& values) {
    ViewSet views;
    for (const tavrin::Secret& value : values) {
        views.insert(value.text());
    }
    return views;
}

bool hasSecret(std::string_view text, std::string_view secret) {
    std::size_t position = text.find(secret);
    for (; position != std::string_view::npos; position = text.find(secret, position + 1)) {
        const std::size_t end = position + secret.size();
        const bool isWord = (position == 0 || !isInWord(text[position - 1])) &&
                            (end == text.size() || !isInWord(text[end]));
        if (isWord || secret.size() >= longValue) {
            return true;
        }
    }
    return false;
}

/// Whether one of the values stands between two of these marks. Keys of JSON objects do not count.
bool hasQuoted(std::string_view text, char mark, const ViewSet& values) {
    std::size_t open = text.find(mark);
    while (open != std::string_view::npos) {
        const std::size_t close = text.find(mark, open + 1);
        if (close == std::string_view::npos) {
            break;
        }
        if (values.contains(trimmedASCII(text.substr(open + 1, close - open - 1))) &&
            !trimmedASCII(text.substr(close + 1, 8)).starts_with(':')) {
            return true;
        }
        open = close;
    }
    return false;
}

bool hasElement(std::string_view text, const ViewSet& values) {
    std::size_t open = text.find('>');
    while (open != std::string_view::npos) {
        const std::size_t close = text.find_first_of("<>", open + 1);
        if (close == std::string_view::npos) {
            break;
        }
        if (text[close] == '<' &&
            values.contains(trimmedASCII(text.substr(open + 1, close - open - 1)))) {
            return true;
        }
        open = text.find('>', close);
    }
    return false;
}

bool hasWord(std::string_view text, const ViewSet& values) {
    auto position = text.begin();
    while (position != text.end()) {
        const auto first = std::find_if(position, text.end(), isInWord);
        position = std::find_if_not(first, text.end(), isInWord);
        if (values.contains(std::string_view(first, position))) {
            return true;
        }
    }
    return false;
}

using Range = SearchableText::Range;

std::vector<Range> wordsOf(std::string_view text) {
    std::vector<Range> words;
    std::size_t position = 0;
    while (position < text.size()) {
        if (!isInWord(text[position])) {
            ++position;
            continue;
        }
        const std::size_t begin = position;
        while (position < text.size() && isInWord(text[position])) {
            ++position;
        }
        words.push_back({begin, position});
    }
    return words;
}

/// Appends a word to the words of a phrase.
void append(std::string& phrase, std::string_view word) {
    if (!phrase.empty()) {
        phrase += ' ';
    }
    phrase += word;
}

/// Whether there is a character that UTF-8 encodes with three bytes or more. Most scripts of such
/// characters have no spaces between words.
bool hasWideCharacter(std::string_view text) {
    return std::ranges::any_of(
        text, [](char character) { return static_cast<unsigned char>(character) >= 0xE0; });
}

/// Where the text has the phrases: their words, with anything else between them.
void findPhrases(const SearchableText& decoded, const ViewSet& phrases, std::vector<Range>& found) {
    if (phrases.empty()) {
        return;
    }
    const std::string_view text = decoded.text();
    const std::vector<Range> words = wordsOf(text);
    for (std::size_t first = 0; first < words.size(); ++first) {
        std::string phrase;
        // A short value has no more words than characters.
        const std::size_t end = std::min(words.size(), first + longValue);
        for (std::size_t last = first; last < end && phrase.size() < 2 * longWord; ++last) {
            const Range word = words[last];
            append(phrase, text.substr(word.begin, word.end - word.begin));
            if (phrases.contains(phrase)) {
                found.push_back(decoded.origin({words[first].begin, word.end}));
            }
        }
    }
}

/// Where the text has the values, even within a word.
void findAnywhere(const SearchableText& decoded, const ViewSet& values, std::vector<Range>& found) {
    const std::string_view text = decoded.text();
    for (std::size_t begin = 0; begin < text.size() && !values.empty(); ++begin) {
        for (std::size_t size = 1; size < longValue && begin + size <= text.size(); ++size) {
            if (values.contains(text.substr(begin, size))) {
                found.push_back(decoded.origin({begin, begin + size}));
            }
        }
    }
}

template <typename Add>
void forEachString(
    const boost::json::value& tree, std::span<const std::string_view> publicKeys, const Add& add) {
    if (const auto* text = tree.if_string()) {
        add(std::string_view(text->data(), text->size()));
    } else if (const auto* array = tree.if_array()) {
        for (const boost::json::value& element : *array) {
            forEachString(element, publicKeys, add);
        }
    } else if (const auto* object = tree.if_object()) {
        for (const auto& member : *object) {
            const std::string_view key(member.key().data(), member.key().size());
            if (std::ranges::find(publicKeys, key) == publicKeys.end()) {
                forEachString(member.value(), publicKeys, add);
            }
        }
    }
}

} // namespace

void RequestEcho::add(std::string_view value) {
    Buffer whole(value);
    unescape(whole.text);
    const std::string_view text = trimmedASCII(whole.text);
    Buffer words(text);
    keepWords(words.text);
    const std::vector<Range> parts = wordsOf(text);
    const bool isWord = parts.size() == 1 && std::ranges::all_of(words.text, isLetter);
    if (words.text.size() >= (isWord ? longWord : longValue)) {
        // A service may leave out the country code of the United States.
        constexpr std::size_t longNumber = 11;
        if (words.text.size() == longNumber && words.text.front() == '1' &&
            std::ranges::all_of(words.text, isDigit)) {
            long_.emplace_back(words.text.substr(1));
        }
        lowercase(words.text);
        long_.emplace_back(std::move(words.text));
        return;
    }
    Buffer phrase("");
    for (const Range& part : parts) {
        append(phrase.text, text.substr(part.begin, part.end - part.begin));
    }
    lowercase(phrase.text);
    if (parts.size() == 1 && hasWideCharacter(phrase.text)) {
        wide_.emplace_back(std::move(phrase.text));
    } else if (parts.size() > 1 || phrase.text.size() >= shortestWord) {
        phrases_.emplace_back(std::move(phrase.text));
    }
    if (!text.empty()) {
        quoted_.emplace_back(std::string(text));
    }
    if (words.text.size() >= shortestNumber && std::ranges::any_of(words.text, isDigit)) {
        numbers_.emplace_back(std::move(words.text));
    }
}

void RequestEcho::addSecret(std::string_view value) {
    Buffer whole(value);
    unescape(whole.text);
    if (whole.text.empty()) {
        return;
    }
    Buffer words(whole.text);
    keepWords(words.text);
    if (words.text.size() >= longSecret) {
        lowercase(words.text);
        long_.emplace_back(std::move(words.text));
    }
    secrets_.emplace_back(std::move(whole.text));
}

void RequestEcho::addStrings(
    const boost::json::value& tree, std::span<const std::string_view> publicKeys) {
    forEachString(tree, publicKeys, [this](std::string_view text) { add(text); });
}

void RequestEcho::addSecretStrings(const boost::json::value& tree) {
    forEachString(tree, {}, [this](std::string_view text) { addSecret(text); });
}

bool RequestEcho::isIn(std::string_view text) const {
    Buffer plain(text);
    unescape(plain.text);
    // Also search the text as it is: what precedes a secret could form an escape with its start.
    const auto isSecretIn = [&plain, text](const tavrin::Secret& secret) {
        return hasSecret(plain.text, secret.text()) || hasSecret(text, secret.text());
    };
    if (std::ranges::any_of(secrets_, isSecretIn) || hasWord(plain.text, viewsOf(numbers_))) {
        return true;
    }
    const ViewSet quoted = viewsOf(quoted_);
    if (hasQuoted(plain.text, '"', quoted) || hasQuoted(plain.text, '\'', quoted) ||
        hasQuoted(plain.text, '`', quoted) || hasElement(plain.text, quoted)) {
        return true;
    }
    if (long_.empty()) {
        return false;
    }
    keepWords(plain.text);
    lowercase(plain.text);
    return PartIndex(viewsOf(long_)).hasPartIn(plain.text);
}

std::string RequestEcho::takenOutOf(std::string_view text) const {
    // Look at the whole text: the shown part could end within a value.
    if (isIn(text)) {
        return {};
    }
    std::vector<Range> found;
    const SearchableText decoded(text.substr(0, longestShown + longestMatch));
    findPhrases(decoded, viewsOf(phrases_), found);
    findAnywhere(decoded, viewsOf(wide_), found);
    std::ranges::sort(found, {}, &Range::begin);
    text = text.substr(0, longestShown);
    if (found.empty()) {
        return std::string(text);
    }
    std::string rest;
    bool hasWords = false;
    std::size_t position = 0;
    const auto keepUntil = [&](std::size_t end) {
        const std::string_view kept = text.substr(position, end - position);
        hasWords = hasWords || std::ranges::any_of(kept, isInWord);
        rest += kept;
    };
    for (const Range& range : found) {
        if (range.begin >= text.size()) {
            break;
        }
        if (range.begin >= position) {
            keepUntil(range.begin);
            rest += ellipsis;
        }
        position = std::min(std::max(position, range.end), text.size());
    }
    keepUntil(text.size());
    return hasWords ? rest : std::string();
}

} // namespace orvel
