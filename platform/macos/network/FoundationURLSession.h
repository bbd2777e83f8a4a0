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

/// The system's URL loading. Each exchange has a session of the system's to itself, without a
/// store for anything: a connection that is used again may make the system send a request twice.
///
/// Headers arrive in an order of the system's choosing. A reply that states no length and ends with
/// its connection is whole, for the system does not tell how it ended.
class FoundationURLSession final : public URLSession {
public:
    /// PEM files of certificates to trust besides the system's. Throws `tavrin::PlatformError` when
    /// one cannot be read, or has none.
    explicit FoundationURLSession(const std::vector<std::filesystem::path>& extraCertificates);
    ~FoundationURLSession() override;

    [[nodiscard]] std::unique_ptr<Task>
    start(URLRequest request, std::function<void(URLResult)> completion) override;

private:
    class FoundationTask;

    /// Certificates, each of which may be the root of a server's chain.
    NSArray* anchors_;
    PendingCalls<URLResult> exchanges_;
    /// Those in flight, and perhaps some that have just ended.
    NSHashTable<NSURLSession*>* sessions_;
};

NS_ASSUME_NONNULL_END

} // namespace orvel
