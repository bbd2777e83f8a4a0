// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"
#include "platform/linux/support/WorkQueue.h"
#include "platform/linux/update/UpdateKey.h"
#include "platform/linux/update/UpdateOffer.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace orvel {

/// Loads the update feed and finds the update to offer.
///
/// Main thread. A separate thread, which the destructor waits for, reads the feed and verifies its
/// items: the feed's content is not trusted, and a large one would block the window. Borrows the
/// session.
class UpdateFeedReader final {
public:
    /// The newest suitable update, if any; or why the feed cannot be used, as a sentence for the
    /// user.
    using Result = std::variant<std::optional<UpdateOffer>, std::string>;

    explicit UpdateFeedReader(URLSession& session) : session_(session) {}
    ~UpdateFeedReader() { cancel(); }

    /// Calls `finish` later, unless cancelled before. One feed at a time.
    void read(
        std::string url,
        UpdateCriteria criteria,
        const UpdateKey& key,
        std::function<void(const Result&)> finish);
    void cancel();
    [[nodiscard]] bool isReading() const { return reading_ != nullptr; }

private:
    struct Reading;

    void receive(const URLResult& result);
    void finish(const Result& result);

    URLSession& session_;
    /// Only the main thread owns one, so an expired pointer to it says that it was cancelled.
    std::shared_ptr<Reading> reading_;
    WorkQueue worker_;
};

} // namespace orvel
