// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"

#include <cstdint>
#include <exception>
#include <string>
#include <variant>

namespace orvel {

/// Why an update failed. `what()` is a sentence for the user.
class UpdateError final : public std::exception {
public:
    enum class Resource { Feed, Update };

    /// There was no reply.
    struct NotLoaded {
        Resource resource;
        std::string reason;
    };
    struct BadStatus {
        Resource resource;
        int status;
    };
    struct Redirected {
        Resource resource;
        bool isToPlainHTTP;
    };
    struct FeedTooLong {};
    struct FeedNotUTF8 {};
    /// A document type may declare entities.
    struct FeedWithDocumentType {};
    struct FeedNotXML {
        std::uint64_t line;
    };
    struct FeedNotRSS {};
    /// An item lacks `what`, or, for `Unusable`, has it in a form that cannot be used. The version
    /// is empty when the version itself is wrong.
    struct Missing {
        std::string version;
        std::string what;
    };
    struct Unusable {
        std::string version;
        std::string what;
    };
    struct NotHTTPS {
        std::string version;
    };
    /// The item is not signed, or the signature covers other fields.
    struct BadItemSignature {
        std::string version;
    };
    /// The key of this build is not valid.
    struct BadKey {};
    struct TooShort {
        std::uint64_t expected;
        std::uint64_t received;
    };
    struct TooLong {
        std::uint64_t expected;
    };
    struct BadSignature {};
    /// Signed as well, but not the file that the feed names.
    struct OtherFile {};
    /// Others could replace a package in this folder before it is opened.
    struct SharedFolder {
        std::string folder;
    };
    /// The installed file is not the one that was verified.
    struct Swapped {};

    using Case = std::variant<
        NotLoaded,
        BadStatus,
        Redirected,
        FeedTooLong,
        FeedNotUTF8,
        FeedWithDocumentType,
        FeedNotXML,
        FeedNotRSS,
        Missing,
        Unusable,
        NotHTTPS,
        BadItemSignature,
        BadKey,
        TooShort,
        TooLong,
        BadSignature,
        OtherFile,
        SharedFolder,
        Swapped>;

    // Thrown by its case.
    // NOLINTNEXTLINE(google-explicit-constructor)
    UpdateError(Case reason);

    [[nodiscard]] const Case& reason() const { return reason_; }
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

private:
    Case reason_;
    std::string description_;
};

/// The reply, if its status is 200. Throws otherwise.
const URLResponse& checkedReply(const URLResult& result, UpdateError::Resource resource);

} // namespace orvel
