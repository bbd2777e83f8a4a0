// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Date.h"

#include <cstdint>
#include <optional>
#include <string>

namespace orvel {

/// A newer version that the update feed offers. The texts are an outsider's, and well-formed UTF-8.
struct SoftwareUpdate {
    /// By which versions are compared.
    std::string version;
    /// For the user's eyes.
    std::string displayVersion;
    /// Plain text; may be empty.
    std::string releaseNotes;
    /// Bytes to download.
    std::uint64_t length = 0;

    bool operator==(const SoftwareUpdate&) const = default;
};

/// Looks for newer versions of this application, once a day and when asked to, and installs them
/// when the user wants it. An update that is not signed with the feed's key is never installed.
///
/// Main thread. One update is under way at a time. The delegate and the user driver are called
/// there too, also from within the functions here, and may call these in turn.
class SoftwareUpdater {
public:
    struct Feed {
        std::string url;
        /// Base64 of an Ed25519 public key.
        std::string publicKey;
    };

    enum class Choice {
        /// Of an update that was found: download it. Of one that is ready: put it in place.
        Install,
        /// Drop it until the next check.
        Later,
        /// No scheduled check shows this version again, nor an older one.
        Skip,
    };

    enum class Showing {
        /// Nobody is waiting for it: the focus stays where it is. The user driver decides whether
        /// the user sees it at once, or not before `showUpdateInFocus`.
        Gently,
        InFocus,
    };

    /// What the user sees of an update, and where the choices come from. A system's updater that
    /// has windows of its own never calls it.
    class UserDriver {
    public:
        UserDriver() = default;
        UserDriver(const UserDriver&) = delete;
        UserDriver& operator=(const UserDriver&) = delete;
        virtual ~UserDriver() = default;

        /// A check that the user asked for has begun; `cancel` ends it.
        virtual void showChecking() = 0;
        /// That check found nothing newer.
        virtual void showNoUpdate() = 0;
        /// Answered by `choose`, with any of the choices. While one is shown gently and the user
        /// has not looked at it, a newer one may take its place.
        virtual void showUpdate(const SoftwareUpdate& update, Showing showing) = 0;
        /// The user asks for updates while one is being shown, or downloaded.
        virtual void showUpdateInFocus() = 0;
        /// Called often; `cancel` ends the download.
        virtual void showDownload(std::uint64_t received, std::uint64_t expected) = 0;
        /// All of it is here and is being verified.
        virtual void showVerification() = 0;
        /// Verified. Answered by `choose`: now, or not.
        virtual void showReadyToInstall(const SoftwareUpdate& update) = 0;
        /// What the user asked for has ended without an update; the sentence says why and can be
        /// read as it stands. Nothing was installed, and what was downloaded goes.
        virtual void showRefusal(const std::string& sentence) = 0;
        /// The update is a package that the system's own installer has to open: the verified file
        /// at that path is to be shown to the user.
        virtual void revealPackage(const std::string& path) = 0;
        /// The new version has taken this one's place on the disk and is to be started.
        virtual void relaunch() = 0;
    };

    /// What the rest of the agent learns of updates.
    class Delegate {
    public:
        Delegate() = default;
        Delegate(const Delegate&) = delete;
        Delegate& operator=(const Delegate&) = delete;
        virtual ~Delegate() = default;

        /// Whether an update that a scheduled check finds is to be shown gently.
        [[nodiscard]] virtual bool supportsGentleScheduledUpdateReminders() const = 0;
        /// Just before the user driver shows it.
        virtual void standardUserDriverWillHandleShowingUpdate(
            const SoftwareUpdate& update, bool isUserInitiated) = 0;
        /// The user has looked at it, or decided about it.
        virtual void standardUserDriverDidReceiveUserAttention(const SoftwareUpdate& update) = 0;
        /// `lastUpdateCheckDate` has changed.
        virtual void updaterDidFinishUpdateCheck() = 0;
        /// A choice of the user's has been saved: whether checks are automatic, or which version is
        /// skipped. Or it could not be, as that sentence says, and holds for this launch only.
        virtual void updaterDidSaveChoice(const std::optional<std::string>& failure) = 0;
    };

    SoftwareUpdater() = default;
    SoftwareUpdater(const SoftwareUpdater&) = delete;
    SoftwareUpdater& operator=(const SoftwareUpdater&) = delete;
    virtual ~SoftwareUpdater() = default;

    /// Begins with scheduled checks. Both are borrowed until `stop`. Only while stopped.
    virtual void start(Feed feed, Delegate& delegate, UserDriver& userDriver) = 0;
    /// Drops what is under way and calls nobody any more.
    virtual void stop() = 0;

    /// A check on the user's behalf, every end of which is shown; or, while an update is being
    /// shown or downloaded, that one again. Only while started.
    virtual void checkForUpdates() = 0;

    /// On until it is switched off; kept across launches.
    [[nodiscard]] virtual bool automaticallyChecksForUpdates() const = 0;
    /// Holds at once; the delegate is told when it has been saved.
    virtual void setAutomaticallyChecksForUpdates(bool isAutomatic) = 0;

    /// When the feed was last read, in this launch or an earlier one.
    [[nodiscard]] virtual std::optional<tavrin::Date> lastUpdateCheckDate() const = 0;

    /// The user's answer to what the user driver shows; nothing when nobody has asked.
    virtual void choose(Choice choice) = 0;
    /// The user has seen the update that is being shown.
    virtual void noteUserAttention() = 0;
    /// Ends a check or a download that the user does not want to wait for any longer.
    virtual void cancel() = 0;
};

} // namespace orvel
