// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateOffer.h"

#include "core/Text.h"
#include "platform/linux/update/UpdateError.h"

#include <charconv>
#include <system_error>
#include <utility>

namespace orvel {

namespace {

/// Longer names of versions are cut for the user.
constexpr std::size_t maximumNameLength = 64;
/// Longer than the notes of any version; laying out much more would block the window.
constexpr std::size_t maximumNotesLength = 10'000;

bool isForThisCopy(const AppcastItem& item, const UpdateCriteria& criteria) {
    return item.channel.empty() && item.enclosure && item.enclosure->system == "linux" &&
           item.enclosure->architecture == criteria.architecture &&
           item.enclosure->type == criteria.type;
}

UpdateVersion versionOf(const AppcastItem& item) {
    if (item.version.empty()) {
        throw UpdateError(UpdateError::Missing{"", "version"});
    }
    auto version = UpdateVersion::parse(item.version);
    if (!version) {
        throw UpdateError(UpdateError::Unusable{"", "version"});
    }
    return *std::move(version);
}

bool runsHere(const AppcastItem& item, const UpdateCriteria& criteria) {
    if (item.minimumSystemVersion.empty()) {
        return true;
    }
    const auto minimum = UpdateVersion::parse(item.minimumSystemVersion);
    if (!minimum) {
        throw UpdateError(UpdateError::Unusable{item.version, "minimum system version"});
    }
    return *minimum <= criteria.systemVersion;
}

std::uint64_t lengthOf(const AppcastItem& item) {
    const std::string& text = item.enclosure->length;
    if (text.empty()) {
        throw UpdateError(UpdateError::Missing{item.version, "length"});
    }
    std::uint64_t length = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, length);
    if (result.ec != std::errc() || result.ptr != end || length == 0 ||
        length > maximumUpdateBytes) {
        throw UpdateError(UpdateError::Unusable{item.version, "length"});
    }
    return length;
}

UpdateSignature signatureOf(const AppcastItem& item) {
    if (item.enclosure->signature.empty()) {
        throw UpdateError(UpdateError::Missing{item.version, "signature"});
    }
    const auto signature = updateSignatureFromBase64(item.enclosure->signature);
    if (!signature) {
        throw UpdateError(UpdateError::Unusable{item.version, "signature"});
    }
    return *signature;
}

std::string urlOf(const AppcastItem& item) {
    const std::string& url = item.enclosure->url;
    if (url.empty()) {
        throw UpdateError(UpdateError::Missing{item.version, "address"});
    }
    if (!url.starts_with("https://")) {
        throw UpdateError(UpdateError::NotHTTPS{item.version});
    }
    return url;
}

} // namespace

std::optional<UpdateOffer>
newestUpdate(const std::vector<AppcastItem>& items, const UpdateCriteria& criteria) {
    const AppcastItem* newest = nullptr;
    std::optional<UpdateVersion> newestVersion;
    for (const AppcastItem& item : items) {
        if (!isForThisCopy(item, criteria)) {
            continue;
        }
        UpdateVersion version = versionOf(item);
        const bool isWanted = version > criteria.current &&
                              (!criteria.skipped || version > *criteria.skipped) &&
                              (!newestVersion || version > *newestVersion);
        if (isWanted && runsHere(item, criteria)) {
            newest = &item;
            newestVersion = std::move(version);
        }
    }
    if (newest == nullptr) {
        return std::nullopt;
    }
    SoftwareUpdate update;
    update.version = newest->version;
    update.displayVersion = newest->shortVersion.empty()
                                ? newest->version
                                : tavrin::shownText(newest->shortVersion, maximumNameLength);
    update.releaseNotes = tavrin::shownText(newest->description, maximumNotesLength);
    update.length = lengthOf(*newest);
    return UpdateOffer{
        std::move(update), *std::move(newestVersion), urlOf(*newest), signatureOf(*newest)};
}

} // namespace orvel
