// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/update/UpdateDownloader.h"

#include "core/Errors.h"
#include "platform/UpdatePresenter.h"
#include "platform/linux/update/StagedUpdate.h"
#include "platform/linux/update/UpdateError.h"

#include <atomic>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace orvel {

namespace {

/// Enough for a large update over a slow connection.
constexpr tavrin::Seconds timeout{3'600};

void makeFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) {
        throw tavrin::PlatformError::fromErrno(
            error.value(), "Could not make the folder " + folder.string());
    }
}

} // namespace

/// Opened by the worker, filled by the session's thread until the request completes.
struct UpdateDownloader::File {
    bool receive(std::string_view piece) noexcept {
        try {
            staged->append(piece);
            received = staged->received();
            return true;
        } catch (...) {
            failure = std::current_exception();
            return false;
        }
    }

    std::optional<StagedUpdate> staged;
    std::atomic<std::uint64_t> received = 0;
    std::exception_ptr failure;
};

/// Only the main thread owns one, so an expired pointer to it says that it was dropped.
struct UpdateDownloader::Download {
    UpdateOffer offer;
    UpdateKey key;
    UpdatePresenter& presenter;
    bool isLoading = true;
    std::shared_ptr<File> file = std::make_shared<File>();
    std::unique_ptr<URLSession::Task> task = nullptr;
    std::unique_ptr<Clock::Timer> progressTimer = nullptr;
};

UpdateDownloader::UpdateDownloader(
    URLSession& session, Clock& clock, const UpdateInstallation& installation, Handlers handlers)
    : session_(session),
      clock_(clock),
      installation_(installation),
      handlers_(std::move(handlers)) {}

UpdateDownloader::~UpdateDownloader() {
    cancel();
}

void UpdateDownloader::start(
    const UpdateOffer& offer, const UpdateKey& key, UpdatePresenter& presenter) {
    download_ = std::make_shared<Download>(Download{offer, key, presenter});
    const bool isPackage = installation_.kind() == UpdateInstallation::Kind::Package;
    run(
        [file = download_->file,
         place = installation_.place(offer.version.text()),
         length = offer.update.length,
         isPackage] {
            if (isPackage) {
                makeFolder(place.parent_path());
            }
            using Use = StagedUpdate::Use;
            file->staged.emplace(place, length, isPackage ? Use::Document : Use::Program);
        },
        [this] { load(); });
    showProgress();
}

bool UpdateDownloader::isLoading() const {
    return download_ && download_->isLoading;
}

void UpdateDownloader::load() {
    URLRequest request;
    request.url = download_->offer.url;
    request.timeout = timeout;
    // Weak, so that a session that keeps the request does not keep the file.
    request.receiver = [file = std::weak_ptr(download_->file)](std::string_view piece) {
        const std::shared_ptr<File> target = file.lock();
        return target && target->receive(piece);
    };
    download_->task = session_.start(
        std::move(request), [this, download = std::weak_ptr(download_)](const URLResult& result) {
            if (!download.expired()) {
                receive(result);
            }
        });
}

void UpdateDownloader::showProgress() {
    download_->progressTimer = clock_.schedule(progressInterval, [this] { showProgress(); });
    download_->presenter.show(
        UpdatePresenter::Download{download_->file->received, download_->offer.update.length});
}

void UpdateDownloader::receive(const URLResult& result) {
    download_->progressTimer.reset();
    download_->task.reset();
    try {
        if (download_->file->failure) {
            std::rethrow_exception(download_->file->failure);
        }
        static_cast<void>(checkedReply(result, UpdateError::Resource::Update));
    } catch (const std::exception& error) {
        handlers_.failed(error.what());
        return;
    }
    download_->isLoading = false;
    run([file = download_->file,
         key = download_->key,
         proof = download_->offer.proof] { file->staged->verify(key, proof); },
        handlers_.verified);
    download_->presenter.show(UpdatePresenter::Verification());
}

void UpdateDownloader::install() {
    run([file = download_->file] { file->staged->putInPlace(); }, handlers_.installed);
}

void UpdateDownloader::cancel() {
    if (!download_) {
        return;
    }
    if (download_->task) {
        download_->task->cancel();
    }
    // On the worker, because freeing the space of a large file takes a while.
    worker_.run([file = std::move(download_->file)]() mutable { file.reset(); });
    download_.reset();
}

void UpdateDownloader::run(std::function<void()> job, std::function<void()> next) {
    const auto failureOf = [job = std::move(job)]() -> std::optional<std::string> {
        try {
            job();
            return std::nullopt;
        } catch (const std::exception& error) {
            return error.what();
        }
    };
    const auto end = [this, next = std::move(next), download = std::weak_ptr(download_)](
                         const std::optional<std::string>& failure) {
        if (download.expired()) {
            return;
        }
        if (failure) {
            handlers_.failed(*failure);
        } else {
            next();
        }
    };
    worker_.run(failureOf, end);
}

} // namespace orvel
