// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/network/RequestEcho.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <numeric>
#include <optional>
#include <unordered_set>
#include <utility>

namespace orvel {

namespace {

/// Shorter values, and single words below `longWord`, could be in the text by chance.
constexpr std::size_t longValue = 8;
/// A text that has a part of a value of this length counts as containing the value.
constexpr std::size_t longWord = 16;
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

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool isNotASCII(char character) {
    return static_cast<unsigned char>(character) >= 0x80;
}

bool isInWord(char character) {
    return isLetter(character) || isDigit(character) || isNotASCII(character);
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

/// A decoded escape sequence. Never longer than the sequence.
struct Unescaped {
    std::array<char, 4> bytes{};
    std::size_t size = 0;
    /// Of the sequence.
    std::size_t length = 0;

    [[nodiscard]] static Unescaped byte(unsigned value, std::size_t length) {
        Unescaped result;
        result.bytes[result.size++] = static_cast<char>(value);
        result.length = length;
        return result;
    }

    [[nodiscard]] static Unescaped character(unsigned value, std::size_t length) {
        if (value < 0x80) {
            return byte(value, length);
        }
        Unescaped result;
        const auto add = [&result](unsigned lead, unsigned bits) {
            result.bytes[result.size++] = static_cast<char>(lead | bits);
        };
        if (value < 0x800) {
            add(0xC0, value >> 6U);
        } else {
            if (value < 0x10000) {
                add(0xE0, value >> 12U);
            } else {
                add(0xF0, (value >> 18U) & 0x07U);
                add(0x80, (value >> 12U) & 0x3FU);
            }
            add(0x80, (value >> 6U) & 0x3FU);
        }
        add(0x80, value & 0x3FU);
        result.length = length;
        return result;
    }
};

/// The number that these characters are, all of them.
std::optional<unsigned> number(std::string_view digits, int base) {
    unsigned value = 0;
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, value, base);
    const bool isNumber = !digits.empty() && result.ec == std::errc() && result.ptr == end;
    return isNumber ? std::optional(value) : std::nullopt;
}

/// The number written with exactly `count` hexadecimal digits at the position.
std::optional<unsigned> hexAt(std::string_view text, std::size_t position, std::size_t count) {
    if (text.size() < position + count) {
        return std::nullopt;
    }
    return number(text.substr(position, count), 16);
}

/// `\uXXXX`, or two of them for one character.
std::optional<Unescaped> unescapedUnicode(std::string_view text) {
    const auto first = hexAt(text, 2, 4);
    if (!first) {
        return std::nullopt;
    }
    if (*first >= 0xD800 && *first < 0xDC00 && text.substr(6).starts_with("\\u")) {
        const auto second = hexAt(text, 8, 4);
        if (second && *second >= 0xDC00 && *second < 0xE000) {
            const unsigned value = 0x10000 + ((*first - 0xD800) << 10U) + (*second - 0xDC00);
            return Unescaped::character(value, 12);
        }
    }
    return Unescaped::character(*first, 6);
}

std::optional<Unescaped> unescapedBackslash(std::string_view text) {
    if (text.size() < 2) {
        return std::nullopt;
    }
    switch (text[1]) {
    case 'u':
        return unescapedUnicode(text);
    case 'x':
        if (const auto byte = hexAt(text, 2, 2)) {
            return Unescaped::byte(*byte, 4);
        }
        return std::nullopt;
    case 'b':
    case 'f':
    case 'n':
    case 'r':
    case 't':
        return Unescaped::byte(' ', 2);
    case '"':
    case '\'':
    case '/':
    case '\\':
        return Unescaped::byte(static_cast<unsigned char>(text[1]), 2);
    default:
        return std::nullopt;
    }
}

std::optional<Unescaped> unescapedEntity(std::string_view text) {
    constexpr std::size_t longestEntity = 10;
    const std::size_t end = text.substr(0, longestEntity).find(';');
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view name = text.substr(1, end - 1);
    if (name.starts_with('#')) {
        name.remove_prefix(1);
        const bool isHex = name.starts_with('x') || name.starts_with('X');
        const auto value = isHex ? number(name.substr(1), 16) : number(name, 10);
        return value && *value <= 0x10FFFF ? std::optional(Unescaped::character(*value, end + 1))
                                           : std::nullopt;
    }
    constexpr std::array<std::pair<std::string_view, char>, 5> entities = {
        {{"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}}};
    const auto known =
        std::ranges::find(entities, name, [](const auto& entity) { return entity.first; });
    return known != entities.end()
               ? std::optional(Unescaped::byte(static_cast<unsigned char>(known->second), end + 1))
               : std::nullopt;
}

/// The escape sequence at the start of the text.
std::optional<Unescaped> unescaped(std::string_view text) {
    switch (text.front()) {
    case '%':
        if (const auto byte = hexAt(text, 1, 2)) {
            return Unescaped::byte(*byte, 3);
        }
        return std::nullopt;
    case '\\':
        return unescapedBackslash(text);
    case '&':
        return unescapedEntity(text);
    default:
        return std::nullopt;
    }
}

/// Where the bytes of a text come from, and the end of the text.
using Origins = std::vector<std::size_t>;

/// Decodes escape sequences in place. Returns whether there were any. Also moves the origins.
bool unescapeOnce(std::string& text, Origins* origins) {
    const std::string_view source = text;
    std::size_t size = 0;
    std::size_t position = 0;
    const auto keepOrigin = [&](std::size_t count) {
        if (origins != nullptr) {
            std::fill_n(origins->begin() + std::ptrdiff_t(size), count, (*origins)[position]);
        }
    };
    while (position < source.size()) {
        if (const auto found = unescaped(source.substr(position))) {
            keepOrigin(found->size);
            std::copy_n(found->bytes.begin(), found->size, text.begin() + std::ptrdiff_t(size));
            size += found->size;
            position += found->length;
        } else {
            keepOrigin(1);
            text[size++] = source[position++];
        }
    }
    keepOrigin(1);
    std::memset(text.data() + size, 0, text.size() - size);
    const bool hasChanged = size != text.size();
    text.resize(size);
    return hasChanged;
}

/// Also decodes what is escaped more than once, such as JSON in an HTML page.
void unescape(std::string& text, Origins* origins = nullptr) {
    constexpr int maximumPasses = 3;
    for (int pass = 0; pass < maximumPasses && unescapeOnce(text, origins); ++pass) {
    }
}

/// ASCII only.
void lowercase(std::string& text) {
    for (char& character : text) {
        if (character >= 'A' && character <= 'Z') {
            character = static_cast<char>(character - 'A' + 'a');
        }
    }
}

/// Leaves out all that wrapping, quoting or a different escape could change.
void keepWords(std::string& text) {
    const auto end = std::remove_if(text.begin(), text.end(), std::not_fn(isInWord));
    std::fill(end, text.end(), '\0');
    text.erase(end, text.end());
}

using ViewSet = std::unordered_set<std::string_view>;

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

/// Finds common parts of a text and a set of values. Compares hashes: if two are equal by chance,
/// a text without a common part is hidden.
class PartIndex final {
public:
    explicit PartIndex(const ViewSet& values)
        : filterBits_(filterBitsFor(values)), mayHave_(std::size_t{1} << filterBits_) {
        for (const std::string_view value : values) {
            const std::size_t length = std::min(value.size(), longWord);
            std::vector<std::uint64_t>& hashes = hashes_.at(length);
            for (std::size_t at = 0; at + length <= value.size(); ++at) {
                const std::uint64_t hash = hashOf(value.substr(at, length));
                // Saves memory for a value of equal bytes.
                if (hashes.empty() || hashes.back() != hash) {
                    hashes.push_back(hash);
                    mayHave_[filterSlot(hash)] = true;
                }
            }
        }
        for (std::vector<std::uint64_t>& hashes : hashes_) {
            std::ranges::sort(hashes);
        }
    }

    /// Whether the text contains a whole value, or `longWord` successive bytes of one.
    [[nodiscard]] bool hasPartIn(std::string_view text) const {
        for (std::size_t length = longValue; length <= longWord; ++length) {
            const std::vector<std::uint64_t>& hashes = hashes_.at(length);
            if (hashes.empty()) {
                continue;
            }
            for (std::size_t at = 0; at + length <= text.size(); ++at) {
                const std::uint64_t hash = hashOf(text.substr(at, length));
                if (mayHave_[filterSlot(hash)] && std::ranges::binary_search(hashes, hash)) {
                    return true;
                }
            }
        }
        return false;
    }

private:
    /// Several slots for each hash, so that the filter rejects most positions.
    static int filterBitsFor(const ViewSet& values) {
        constexpr int leastBits = 10;
        constexpr int mostBits = 22;
        std::size_t size = 0;
        for (const std::string_view value : values) {
            size += value.size();
        }
        return std::clamp(static_cast<int>(std::bit_width(size)) + 4, leastBits, mostBits);
    }

    /// Of 8 to 16 bytes.
    static std::uint64_t hashOf(std::string_view text) {
        constexpr std::uint64_t first = 0x9E3779B97F4A7C15U;
        constexpr std::uint64_t second = 0xC2B2AE3D27D4EB4FU;
        static_assert(longValue == sizeof(std::uint64_t));
        static_assert(longWord == 2 * sizeof(std::uint64_t));
        std::uint64_t start = 0;
        std::uint64_t end = 0;
        std::memcpy(&start, text.data(), sizeof start);
        std::memcpy(&end, text.data() + text.size() - sizeof end, sizeof end);
        std::uint64_t hash = start * first;
        hash ^= hash >> 29U;
        hash = (hash + end) * second;
        hash ^= hash >> 32U;
        return hash * first;
    }

    [[nodiscard]] std::size_t filterSlot(std::uint64_t hash) const {
        return static_cast<std::size_t>(hash >> (64 - filterBits_));
    }

    int filterBits_;
    /// By the number of bytes.
    std::array<std::vector<std::uint64_t>, longWord + 1> hashes_;
    /// Rejects most positions without a search.
    std::vector<bool> mayHave_;
};

/// A range of a text.
struct Range {
    std::size_t begin = 0;
    std::size_t end = 0;
};

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

/// A text without escape sequences, which knows where its bytes come from.
class DecodedText final {
public:
    explicit DecodedText(std::string_view source) : text_(source), origins_(source.size() + 1) {
        std::iota(origins_.begin(), origins_.end(), std::size_t{0});
        unescape(text_, &origins_);
        lowercase(text_);
    }

    [[nodiscard]] std::string_view text() const { return text_; }

    /// Where the range is in the source.
    [[nodiscard]] Range origin(Range range) const {
        return {origins_[range.begin], origins_[range.end]};
    }

private:
    std::string text_;
    Origins origins_;
};

/// Where the text has the phrases: their words, with anything else between them.
void findPhrases(const DecodedText& decoded, const ViewSet& phrases, std::vector<Range>& found) {
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
void findAnywhere(const DecodedText& decoded, const ViewSet& values, std::vector<Range>& found) {
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
    const DecodedText decoded(text.substr(0, longestShown + longestMatch));
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
