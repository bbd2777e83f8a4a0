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
        /// Fresh when parsed.
        boost::uuids::uuid id;
        /// The heading above the change, such as "New", "Better" or "Fix".
        std::string label;
        std::string text;

        bool operator==(const Change&) const = default;
    };

    struct Release {
        /// Fresh when parsed.
        boost::uuids::uuid id;
        std::string version;
        /// As written; may be empty.
        std::string date;
        /// Empty for a maintenance release.
        std::vector<Change> changes;

        bool operator==(const Release&) const = default;
    };

    /// In the order of the text, which is newest first.
    std::vector<Release> releases;

    /// Reads any text: what is no release heading, section heading or change is passed over. Bytes
    /// that are not UTF-8 stay as they are.
    [[nodiscard]] static std::vector<Release> parse(std::string_view text);
};

} // namespace tavrin

/// What is equal has the same id.
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
