// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/Clock.h"
#include "platform/URLSession.h"
#include "platform/linux/support/WorkQueue.h"
#include "platform/linux/update/UpdateInstallation.h"
#include "platform/linux/update/UpdateKey.h"
#include "platform/linux/update/UpdateOffer.h"

#include <functional>
#include <memory>
#include <string>

namespace orvel {

class UpdatePresenter;

/// Downloads one update at a time, verifies it and puts it in place.
///
/// The download is hidden beside the file that it will replace. Once its length, its signature and
/// its hash are right, that same open file is put in place.
///
/// Main thread. The file is worked on by a separate thread, which the destructor waits for. Borrows
/// everything it is given.
class UpdateDownloader final {
public:
    /// How often progress is shown.
    static constexpr tavrin::Seconds progressInterval{0.2};

    /// Never called after `cancel`.
    struct Handlers {
        std::function<void()> verified;
        std::function<void()> installed;
        /// With a sentence for the user.
        std::function<void(const std::string&)> failed;
    };

    UpdateDownloader(
        URLSession& session,
        Clock& clock,
        const UpdateInstallation& installation,
        Handlers handlers);
    ~UpdateDownloader();

    /// Loads and verifies the update, and shows the progress.
    void start(const UpdateOffer& offer, const UpdateKey& key, UpdatePresenter& presenter);
    /// Until the last byte has arrived.
    [[nodiscard]] bool isLoading() const;
    /// Puts the verified update in place.
    void install();
    /// Drops the update at any step. Does nothing when there is none.
    void cancel();

private:
    struct File;
    struct Download;

    void load();
    void showProgress();
    void receive(const URLResult& result);
    /// Runs the job on the file's thread. Then runs `next` on this one, or `failed` when the job
    /// threw, unless the download has been dropped.
    void run(std::function<void()> job, std::function<void()> next);

    URLSession& session_;
    Clock& clock_;
    const UpdateInstallation& installation_;
    Handlers handlers_;
    std::shared_ptr<Download> download_;
    WorkQueue worker_;
};

} // namespace orvel
