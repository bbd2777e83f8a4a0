// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/PublishedUpdate.h"

#include <random>
#include <utility>

namespace orvel::test {

namespace {

constexpr std::size_t updateSize = 300'000;

} // namespace

PublishedUpdate::PublishedUpdate() {
    service::LocalService::Options options;
    options.store = directory_ / "records.sqlite";
    options.certificates = directory_ / "certificates";
    options.updates = updates_.path();
    options.updatePublicKey = updates_.publicKey();
    service_ = std::make_unique<service::LocalService>(std::move(options));
    service_->start();
    service_->writeBundle(bundle());
    std::mt19937 random(1);
    for (std::size_t size = 0; size < updateSize; ++size) {
        update_.push_back(static_cast<char>(random()));
    }
    updates_.publish(update_, service_->url());
}

Program::Options PublishedUpdate::installer(
    const std::filesystem::path& appImage, const std::filesystem::path& downloads) const {
    Program::Options options;
    options.arguments = {
        CAMPAIGN_TARGET,
        "update",
        appImage.string(),
        downloads.string(),
        bundle().string(),
        service_->caFile().string()};
    return options;
}

} // namespace orvel::test
