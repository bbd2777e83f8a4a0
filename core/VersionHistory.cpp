// SPDX-License-Identifier: Apache-2.0
#include "core/VersionHistory.h"

#include <boost/uuid/random_generator.hpp>

#include <array>
#include <utility>

namespace tavrin {

namespace {

constexpr std::string_view releaseMark = "## [";
constexpr std::string_view sectionMark = "### ";
constexpr std::string_view changeMark = "- ";

/// The length of the line break at the front, or 0. Compares bytes, which is safe because in
/// well-formed UTF-8 they are not part of other characters.
std::size_t lineBreakLength(std::string_view text) {
    if (text.front() >= '\n' && text.front() <= '\r') {
        return 1;
    }
    if (text.starts_with("\u0085")) {
        return 2;
    }
    return text.starts_with("\u2028") || text.starts_with("\u2029") ? 3 : 0;
}

/// Removes the first line and its line break from the text, and returns the line.
std::string_view takeLine(std::string_view& text) {
    constexpr std::string_view firstBytes = "\n\v\f\r\xC2\xE2";
    std::size_t end = text.find_first_of(firstBytes);
    while (end != std::string_view::npos) {
        if (const std::size_t length = lineBreakLength(text.substr(end)); length > 0) {
            const std::string_view line = text.substr(0, end);
            text.remove_prefix(end + length);
            return line;
        }
        end = text.find_first_of(firstBytes, end + 1);
    }
    return std::exchange(text, {});
}

std::string_view withoutBlanksAround(std::string_view text) {
    constexpr std::string_view blanks = " \t";
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string_view labelOf(std::string_view heading) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 3> labels = {
        {{"Added", "New"}, {"Improved", "Better"}, {"Fixed", "Fix"}}};
    for (const auto& [written, label] : labels) {
        if (heading == written) {
            return label;
        }
    }
    return heading;
}

class Parser final {
public:
    void add(std::string_view line) {
        if (line.starts_with(releaseMark)) {
            openRelease(line.substr(releaseMark.size()));
        } else if (line.starts_with(sectionMark)) {
            label_ = labelOf(withoutBlanksAround(line.substr(sectionMark.size())));
        } else if (line.starts_with(changeMark)) {
            addChange(line.substr(changeMark.size()));
        } else if (!line.empty() && !line.starts_with('#')) {
            continueChange(line);
        }
    }

    [[nodiscard]] std::vector<VersionHistory::Release> finish() && { return std::move(releases_); }

private:
    /// Parses a heading after its opening bracket: a version, a closing bracket, and optionally a
    /// dash and a date.
    void openRelease(std::string_view heading) {
        const std::size_t end = heading.find(']');
        VersionHistory::Release release{makeId_(), std::string(heading.substr(0, end)), {}, {}};
        if (end != std::string_view::npos) {
            const std::string_view rest = withoutBlanksAround(heading.substr(end + 1));
            if (const std::size_t dash = rest.find(changeMark); dash != std::string_view::npos) {
                release.date = withoutBlanksAround(rest.substr(dash + changeMark.size()));
            }
        }
        releases_.push_back(std::move(release));
        label_ = {};
    }

    void addChange(std::string_view text) {
        if (!releases_.empty() && !label_.empty()) {
            releases_.back().changes.push_back({makeId_(), std::string(label_), std::string(text)});
        }
    }

    void continueChange(std::string_view line) {
        if (!releases_.empty() && !releases_.back().changes.empty() && !label_.empty()) {
            releases_.back().changes.back().text.append(1, ' ').append(line);
        }
    }

    boost::uuids::random_generator makeId_;
    /// The last release is still being parsed.
    std::vector<VersionHistory::Release> releases_;
    std::string_view label_;
};

} // namespace

std::vector<VersionHistory::Release> VersionHistory::parse(std::string_view text) {
    Parser parser;
    while (!text.empty()) {
        parser.add(withoutBlanksAround(takeLine(text)));
    }
    return std::move(parser).finish();
}

} // namespace tavrin
