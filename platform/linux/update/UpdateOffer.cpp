// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateOffer.h"

#include "core/Text.h"
#include "core/UpdateStatement.h"
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

UpdateProof proofOf(const AppcastItem& item) {
    const AppcastItem::Enclosure& enclosure = *item.enclosure;
    if (enclosure.signature.empty()) {
        throw UpdateError(UpdateError::Missing{item.version, "signature"});
    }
    const auto signature = updateSignatureFromBase64(enclosure.signature);
    if (!signature) {
        throw UpdateError(UpdateError::Unusable{item.version, "signature"});
    }
    if (enclosure.sha256.empty()) {
        throw UpdateError(UpdateError::Missing{item.version, "hash"});
    }
    const auto hash = updateHashFromHex(enclosure.sha256);
    if (!hash) {
        throw UpdateError(UpdateError::Unusable{item.version, "hash"});
    }
    return {*signature, *hash};
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

void checkSignature(const AppcastItem& item, const ItemVerifier& isSigned) {
    const AppcastItem::Enclosure& enclosure = *item.enclosure;
    const tavrin::UpdateStatement statement{
        .version = item.version,
        .shortVersion = item.shortVersion,
        .notes = item.description,
        .channel = item.channel,
        .minimumSystemVersion = item.minimumSystemVersion,
        .system = enclosure.system,
        .architecture = enclosure.architecture,
        .type = enclosure.type,
        .url = enclosure.url,
        .length = enclosure.length,
        .sha256 = enclosure.sha256};
    const auto signature = updateSignatureFromBase64(enclosure.itemSignature);
    if (!signature || !isSigned(*signature, tavrin::signedBytes(statement))) {
        throw UpdateError(UpdateError::BadItemSignature{item.version});
    }
}

UpdateOffer offerOf(const AppcastItem& item, UpdateVersion version) {
    SoftwareUpdate update;
    update.version = item.version;
    update.displayVersion = item.shortVersion.empty()
                                ? item.version
                                : tavrin::shownText(item.shortVersion, maximumNameLength);
    update.releaseNotes = tavrin::shownText(item.description, maximumNotesLength);
    update.length = lengthOf(item);
    return {std::move(update), std::move(version), urlOf(item), proofOf(item)};
}

} // namespace

std::optional<UpdateOffer> newestUpdate(
    const std::vector<AppcastItem>& items,
    const UpdateCriteria& criteria,
    const ItemVerifier& isSigned) {
    std::optional<UpdateOffer> newest;
    std::optional<UpdateError> refusal;
    for (const AppcastItem& item : items) {
        if (!isForThisCopy(item, criteria)) {
            continue;
        }
        try {
            UpdateVersion version = versionOf(item);
            const UpdateVersion& best = newest ? newest->version : criteria.current;
            if (version > best && runsHere(item, criteria)) {
                checkSignature(item, isSigned);
                newest = offerOf(item, std::move(version));
            }
        } catch (const UpdateError& error) {
            if (!refusal) {
                refusal = error;
            }
        }
    }
    if (!newest && refusal) {
        throw UpdateError(*refusal);
    }
    return newest;
}

} // namespace orvel
