// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateError.h"

#include <fmt/format.h>

#include <string_view>
#include <utility>

namespace orvel {

namespace {

std::string_view subject(UpdateError::Resource resource) {
    return resource == UpdateError::Resource::Feed ? "The update feed" : "The update";
}

struct Description {
    std::string operator()(const UpdateError::NotLoaded& error) const {
        return fmt::format("{} could not be loaded. {}", subject(error.resource), error.reason);
    }
    std::string operator()(const UpdateError::BadStatus& error) const {
        return fmt::format(
            "{} could not be loaded: the server answered with status {}.",
            subject(error.resource),
            error.status);
    }
    std::string operator()(const UpdateError::Redirected& error) const {
        return fmt::format(
            "{} has moved to {}.",
            subject(error.resource),
            error.isToPlainHTTP ? "an address without encryption, which is refused"
                                : "another address, which is not followed");
    }
    std::string operator()(const UpdateError::FeedTooLong&) const {
        return "The update feed is too long to be one.";
    }
    std::string operator()(const UpdateError::FeedNotUTF8&) const {
        return "The update feed is not UTF-8 text.";
    }
    std::string operator()(const UpdateError::FeedWithDocumentType&) const {
        return "The update feed declares a document type, which is refused.";
    }
    std::string operator()(const UpdateError::FeedNotXML& error) const {
        return fmt::format("The update feed is not well-formed in line {}.", error.line);
    }
    std::string operator()(const UpdateError::FeedNotRSS&) const {
        return "The update feed is not an RSS 2.0 feed.";
    }
    std::string operator()(const UpdateError::Missing& error) const {
        return error.version.empty()
                   ? fmt::format("An update in the feed has no {}.", error.what)
                   : fmt::format("Update {} in the feed has no {}.", error.version, error.what);
    }
    std::string operator()(const UpdateError::Unusable& error) const {
        return error.version.empty()
                   ? fmt::format("An update in the feed has an unusable {}.", error.what)
                   : fmt::format(
                         "Update {} in the feed has an unusable {}.", error.version, error.what);
    }
    std::string operator()(const UpdateError::NotHTTPS& error) const {
        return fmt::format(
            "Update {} would have to be loaded without encryption, which is refused.",
            error.version);
    }
    std::string operator()(const UpdateError::BadItemSignature& error) const {
        return fmt::format(
            "The entry of update {} in the feed has no valid signature. It is not offered.",
            error.version);
    }
    std::string operator()(const UpdateError::BadKey&) const {
        return "The update signing key of this build is not valid, so updates cannot be verified.";
    }
    std::string operator()(const UpdateError::TooShort& error) const {
        return fmt::format(
            "The update is shorter than announced: {} bytes instead of {}.",
            error.received,
            error.expected);
    }
    std::string operator()(const UpdateError::TooLong& error) const {
        return fmt::format("The update is longer than the announced {} bytes.", error.expected);
    }
    std::string operator()(const UpdateError::BadSignature&) const {
        return "The signature of the update is not valid. It was not installed.";
    }
    std::string operator()(const UpdateError::OtherFile&) const {
        return "The update is not the file that the feed announces. It was not installed.";
    }
    std::string operator()(const UpdateError::SharedFolder& error) const {
        return fmt::format(
            "Other users can replace files in {}, so the update is not stored there.",
            error.folder);
    }
    std::string operator()(const UpdateError::Swapped&) const {
        return "The file in the update's place is not the one that was verified. Do not open it.";
    }
};

} // namespace

UpdateError::UpdateError(Case reason)
    : reason_(std::move(reason)), description_(std::visit(Description(), reason_)) {}

const URLResponse& checkedReply(const URLResult& result, UpdateError::Resource resource) {
    if (const auto* error = std::get_if<tavrin::URLError>(&result)) {
        throw UpdateError(UpdateError::NotLoaded{resource, error->what()});
    }
    const auto& response = std::get<URLResponse>(result);
    if (!response.redirect.empty()) {
        // No redirect is followed, but one to plain HTTP has a separate error sentence.
        const bool isToPlainHTTP = !response.redirect.starts_with("https://");
        throw UpdateError(UpdateError::Redirected{resource, isToPlainHTTP});
    }
    if (response.status != 200) {
        throw UpdateError(UpdateError::BadStatus{resource, response.status});
    }
    return response;
}

} // namespace orvel
