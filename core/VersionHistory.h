// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <boost/uuid/uuid.hpp>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tavrin {

/// The release notes of a Markdown change log.
struct VersionHistory {
    struct Change {
        /// New for every parse.
        boost::uuids::uuid id;
        /// The heading above the change, such as "New", "Better" or "Fix".
        std::string label;
        std::string text;

        bool operator==(const Change&) const = default;
    };

    struct Release {
        /// New for every parse.
        boost::uuids::uuid id;
        std::string version;
        /// As written. May be empty.
        std::string date;
        /// Empty for a maintenance release.
        std::vector<Change> changes;

        bool operator==(const Release&) const = default;
    };

    /// In the order of the text, newest first.
    std::vector<Release> releases;

    /// Parses any text and skips lines that are not release headings, section headings or changes.
    /// Bytes that are not UTF-8 are kept.
    [[nodiscard]] static std::vector<Release> parse(std::string_view text);
};

} // namespace tavrin

/// Equal values have equal ids, so the id suffices.
template <>
struct std::hash<tavrin::VersionHistory::Change> {
    std::size_t operator()(const tavrin::VersionHistory::Change& change) const noexcept {
        return boost::uuids::hash_value(change.id);
    }
};

template <>
struct std::hash<tavrin::VersionHistory::Release> {
    std::size_t operator()(const tavrin::VersionHistory::Release& release) const noexcept {
        return boost::uuids::hash_value(release.id);
    }
};
