// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"
#include "platform/macos/support/PendingCalls.h"

#import <Foundation/Foundation.h>

#include <filesystem>
#include <memory>
#include <vector>

namespace orvel {

NS_ASSUME_NONNULL_BEGIN

/// Uses the system's URL loading. Each request has its own `NSURLSession` without storage, because
/// the system may send a request twice on a reused connection.
///
/// The system chooses the order of the headers. A reply without a length that ends with its
/// connection counts as complete, because the system does not report how it ended.
class FoundationURLSession final : public URLSession {
public:
    /// PEM files of additional trusted certificates. Throws `tavrin::PlatformError` if a file
    /// cannot be read or has no certificate.
    explicit FoundationURLSession(const std::vector<std::filesystem::path>& extraCertificates);
    ~FoundationURLSession() override;

    [[nodiscard]] std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) override;

private:
    class FoundationTask;

    /// Additional root certificates.
    NSArray* anchors_;
    PendingCalls<URLResult> exchanges_;
    /// The running sessions, and perhaps some that have just ended.
    NSHashTable<NSURLSession*>* sessions_;
};

NS_ASSUME_NONNULL_END

} // namespace orvel
