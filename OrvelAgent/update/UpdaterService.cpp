// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/update/UpdaterService.h"

#include "platform/Bundle.h"
#include "platform/SoftwareUpdater.h"

#include <QString>
#include <QUrl>

#include <string_view>
#include <utility>

namespace orvel {

namespace {

/// Compares the scheme itself, because QUrl also accepts "HTTPS".
bool isHTTPS(std::string_view text) {
    return text.starts_with("https:") && QUrl(QString::fromUtf8(text), QUrl::StrictMode).isValid();
}

} // namespace

UpdaterService::UpdaterService(
    const Bundle& bundle, SoftwareUpdater& updater, UpdatePresenter& presenter) {
    SoftwareUpdater::Feed feed;
    feed.publicKey = bundle.infoString("SUPublicEDKey").value_or("");
    if (feed.publicKey.empty()) {
        configurationError_ = "No update signing key is configured in this build, so updates "
                              "cannot be verified. This build will not self-update.";
        return;
    }
    feed.url = bundle.infoString("SUFeedURL").value_or("");
    if (!isHTTPS(feed.url)) {
        configurationError_ =
            "The update feed URL is missing or not HTTPS. This build will not self-update.";
        return;
    }
    controller_ = &updater;
    controller_->start(std::move(feed), *this, presenter);
}

UpdaterService::~UpdaterService() {
    if (controller_ != nullptr) {
        controller_->stop();
    }
}

void UpdaterService::updateWillBeOffered(const SoftwareUpdate&, bool isUserInitiated) {
    if (!isUserInitiated) {
        setUpdateAwaitingAttention(true);
    }
}

void UpdaterService::checkFinished() {
    lastCheck_ = controller_->lastUpdateCheckDate();
    Q_EMIT changed();
}

void UpdaterService::choiceSaved(const std::optional<std::string>& failure) {
    if (std::exchange(settingsError_, failure) != failure) {
        Q_EMIT changed();
    }
}

void UpdaterService::setUpdateAwaitingAttention(bool isAwaiting) {
    if (std::exchange(updateAwaitingAttention_, isAwaiting) != isAwaiting) {
        Q_EMIT changed();
    }
}

} // namespace orvel
