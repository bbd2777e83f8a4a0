// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateFeedReader.h"

#include "platform/linux/update/Appcast.h"
#include "platform/linux/update/UpdateError.h"

#include <cassert>
#include <cstdint>
#include <exception>
#include <span>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

constexpr tavrin::Seconds timeout{60};

/// Any thread.
UpdateFeedReader::Result
find(std::string_view feed, const UpdateCriteria& criteria, const UpdateKey& key) noexcept {
    try {
        return newestUpdate(
            parseAppcast(feed),
            criteria,
            [&key](const UpdateSignature& signature, std::string_view bytes) {
                return key.verifies(
                    signature, {reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
            });
    } catch (const std::exception& error) {
        return error.what();
    }
}

} // namespace

struct UpdateFeedReader::Reading {
    UpdateCriteria criteria;
    UpdateKey key;
    std::function<void(const Result&)> finish;
    std::unique_ptr<URLSession::Task> task = nullptr;
};

void UpdateFeedReader::read(
    std::string url,
    UpdateCriteria criteria,
    const UpdateKey& key,
    std::function<void(const Result&)> finish) {
    assert(!reading_);
    reading_ = std::make_shared<Reading>(Reading{std::move(criteria), key, std::move(finish)});
    URLRequest request;
    request.url = std::move(url);
    request.timeout = timeout;
    reading_->task = session_.start(
        std::move(request), [this, reading = std::weak_ptr(reading_)](const URLResult& result) {
            if (!reading.expired()) {
                receive(result);
            }
        });
}

void UpdateFeedReader::receive(const URLResult& result) {
    reading_->task.reset();
    std::string feed;
    try {
        feed = checkedReply(result, UpdateError::Resource::Feed).body;
    } catch (const UpdateError& error) {
        finish(error.what());
        return;
    }
    worker_.run(
        [feed = std::move(feed), criteria = reading_->criteria, key = reading_->key] {
            return find(feed, criteria, key);
        },
        [this, reading = std::weak_ptr(reading_)](const Result& found) {
            if (!reading.expired()) {
                finish(found);
            }
        });
}

void UpdateFeedReader::finish(const Result& result) {
    const auto finish = std::move(reading_->finish);
    reading_.reset();
    finish(result);
}

void UpdateFeedReader::cancel() {
    if (reading_ && reading_->task) {
        reading_->task->cancel();
    }
    reading_.reset();
}

} // namespace orvel
