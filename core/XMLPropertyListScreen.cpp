// SPDX-License-Identifier: Apache-2.0
#include "core/PropertyListScreens.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace tavrin {

namespace {

/// Checks and copies the `<plist>` element.
class XMLScreen final {
public:
    XMLScreen(std::string_view xml, const PropertyListLimits& limits)
        : xml_(xml), limits_(limits) {}

    [[nodiscard]] std::optional<std::string> passed() {
        // Leave out the prolog, which may define entities.
        position_ = xml_.find("<plist");
        if (position_ == std::string_view::npos || xml_.find('\0') != std::string_view::npos) {
            return std::nullopt;
        }
        const std::size_t end = xml_.find('>', position_);
        if (end == std::string_view::npos || xml_[end - 1] == '/') {
            return std::nullopt;
        }
        position_ = end + 1;
        copy_.reserve(xml_.size());
        copy_ = "<plist>";
        open_.push_back({"plist", 0});
        while (!open_.empty()) {
            if (!copyNextTag()) {
                return std::nullopt;
            }
        }
        return std::move(copy_);
    }

private:
    struct Element {
        std::string_view name;
        std::size_t childCount;
    };

    /// Colliding keys in libplist's hash table take quadratic time. Keyed archives have long
    /// arrays, but only much smaller dictionaries.
    static constexpr std::size_t maximumDictionarySize = 256;

    /// libplist moves the rest of a text for every entity in it. This limits the bytes moved for
    /// all texts together. A single text of up to 64 KiB cannot reach it.
    static constexpr std::size_t maximumMoveCost = std::size_t{1} << 30U;

    [[nodiscard]] bool copyNextTag() {
        const std::size_t start = xml_.find_first_not_of(" \t\r\n", position_);
        if (start == std::string_view::npos || xml_[start] != '<') {
            return false;
        }
        const std::size_t end = xml_.find('>', start);
        if (end == std::string_view::npos) {
            return false;
        }
        std::string_view name = xml_.substr(start + 1, end - start - 1);
        copyUpTo(end + 1);
        if (name.starts_with('/')) {
            const bool matches = name.substr(1) == open_.back().name;
            open_.pop_back();
            return matches;
        }
        // The `<plist>` element itself does not count as an object.
        if (open_.size() > limits_.depth || ++elementCount_ > limits_.objectCount ||
            (open_.back().name == "dict" &&
             ++open_.back().childCount > 2 * maximumDictionarySize)) {
            return false;
        }
        const bool isEmpty = name.ends_with('/');
        if (isEmpty) {
            name.remove_suffix(1);
        }
        if (name == "dict" || name == "array") {
            if (!isEmpty) {
                open_.push_back({name, 0});
            }
            return true;
        }
        return isLeaf(name) && (isEmpty || copyLeaf(name));
    }

    [[nodiscard]] static bool isLeaf(std::string_view name) {
        static constexpr std::array<std::string_view, 8> names = {
            "data", "date", "false", "integer", "key", "real", "string", "true"};
        return std::find(names.begin(), names.end(), name) != names.end();
    }

    /// Copies the rest of a leaf element, which must contain only text.
    [[nodiscard]] bool copyLeaf(std::string_view name) {
        const std::size_t end = xml_.find('<', position_);
        if (end == std::string_view::npos) {
            return false;
        }
        std::string_view closing = xml_.substr(end);
        if (!closing.starts_with("</") || !closing.substr(2).starts_with(name) ||
            !closing.substr(2 + name.size()).starts_with('>')) {
            return false;
        }
        const std::string_view content = xml_.substr(position_, end - position_);
        moveCost_ += content.size() *
                     static_cast<std::size_t>(std::count(content.begin(), content.end(), '&'));
        if (moveCost_ > maximumMoveCost || (name == "data" && !isBase64(content))) {
            return false;
        }
        copyUpTo(end + 2 + name.size() + 1);
        return true;
    }

    [[nodiscard]] static bool isBase64(std::string_view text) {
        return text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                      "0123456789+/= \t\r\n") == std::string_view::npos;
    }

    void copyUpTo(std::size_t end) {
        copy_.append(xml_, position_, end - position_);
        position_ = end;
    }

    std::string_view xml_;
    const PropertyListLimits& limits_;
    std::size_t position_ = 0;
    std::string copy_;
    /// The open elements, outermost first.
    std::vector<Element> open_;
    std::size_t elementCount_ = 0;
    std::size_t moveCost_ = 0;
};

} // namespace

std::optional<std::string>
PropertyListScreens::screenedXML(std::string_view xml, const PropertyListLimits& limits) {
    return XMLScreen(xml, limits).passed();
}

} // namespace tavrin
