// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/SettingsUserDefaults.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/FileErrors.h"
#include "core/FileLock.h"
#include "core/ParentFolders.h"
#include "core/RegularFile.h"
#include "platform/linux/storage/SettingsFormat.h"

#include <QByteArray>
#include <QFileDevice>
#include <QSettings>
#include <QStandardPaths>
#include <QString>
#include <QVariant>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace orvel {

namespace {

using Value = tavrin::UserDefaults::Value;
using tavrin::FileDescriptor;

/// Much longer than a running process needs to lock the lock file that it has just created.
constexpr std::chrono::milliseconds timeToLock(1'000);

[[noreturn]] void failToRead(const std::filesystem::path& file, int code) {
    throw tavrin::PlatformError::fromErrno(
        code, "Could not read the agent's settings in " + file.string());
}

/// Flushes at the end: if a full disk is detected only on closing, QSettings replaces the file with
/// a truncated one.
bool writeLines(QIODevice& device, const QSettings::SettingsMap& values) {
    const QByteArray lines = SettingsFormat::lines(values);
    auto* file = qobject_cast<QFileDevice*>(&device);
    return device.write(lines) == lines.size() && file != nullptr && file->flush();
}

QSettings::Format lineFormat() {
    static const QSettings::Format format = QSettings::registerFormat(
        QStringLiteral("conf"), SettingsFormat::readLines, writeLines, Qt::CaseSensitive);
    return format;
}

QString qString(const std::filesystem::path& path) {
    return QString::fromStdString(path.string());
}

std::map<std::string, Value, std::less<>> valuesOf(const QSettings& settings) {
    std::map<std::string, Value, std::less<>> values;
    for (const QString& key : settings.allKeys()) {
        values.insert_or_assign(
            key.toStdString(),
            SettingsFormat::valueOf(settings.value(key).toString().toStdString()));
    }
    return values;
}

[[noreturn]] void failToSave(const std::filesystem::path& file, int code) {
    throw tavrin::fileError(code, "Could not save the agent's settings in", file);
}

/// Creates the file and its parent folders, accessible only to the user. Qt keeps an existing
/// file's mode.
void makePrivate(const std::filesystem::path& file) {
    const std::optional<tavrin::PlatformError> noFolder = tavrin::createParentFolders(file);
    const int descriptor = open(file.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (descriptor < 0) {
        if (errno == ENOENT && noFolder) {
            throw tavrin::PlatformError(*noFolder);
        }
        failToSave(file, errno);
    }
    close(descriptor);
}

/// The file with which QSettings excludes other processes while it writes.
std::filesystem::path lockOf(const std::filesystem::path& file) {
    return file.string() + ".lock";
}

bool isLockedByOthers(const FileDescriptor& file) {
    return flock(file.get(), LOCK_EX | LOCK_NB) != 0;
}

std::chrono::nanoseconds changeTime(const struct stat& file) {
    return std::chrono::seconds(file.st_mtim.tv_sec) +
           std::chrono::nanoseconds(file.st_mtim.tv_nsec);
}

bool isNew(const struct stat& file) {
    const std::chrono::nanoseconds changed = changeTime(file);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return changed <= now && now - changed < timeToLock;
}

/// Whether QSettings may have given this name to a new file, which it then renames: the name of the
/// settings file, a dot and six letters.
bool mayBeNewFile(std::string_view name, const std::string& settings) {
    constexpr std::size_t letters = 6;
    if (name.size() != settings.size() + 1 + letters || !name.starts_with(settings + '.')) {
        return false;
    }
    name.remove_prefix(settings.size() + 1);
    return std::ranges::all_of(name, [](char letter) {
        return (letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z');
    });
}

/// Whether the killed process that left this lock file also made the file. The user could have
/// chosen its name, so its owner, its mode and its time must also be those of such a file.
bool isUnfinishedFile(const std::filesystem::path& file, const struct stat& lock) {
    constexpr std::chrono::minutes longestWrite(1);
    struct stat status {};
    if (lstat(file.c_str(), &status) != 0) {
        return false;
    }
    const auto afterLock = changeTime(status) - changeTime(lock);
    return S_ISREG(status.st_mode) && (status.st_mode & ALLPERMS) == (S_IRUSR | S_IWUSR) &&
           status.st_nlink == 1 && status.st_uid == geteuid() && status.st_uid == lock.st_uid &&
           afterLock >= afterLock.zero() && afterLock <= longestWrite;
}

/// Removes the new files of the killed process that left this lock file.
void removeUnfinishedFiles(const std::filesystem::path& settings, const struct stat& lock) {
    std::vector<std::filesystem::path> unfinished;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(settings.parent_path(), error), end;
         !error && entry != end;
         entry.increment(error)) {
        if (mayBeNewFile(entry->path().filename().native(), settings.filename()) &&
            isUnfinishedFile(entry->path(), lock)) {
            unfinished.push_back(entry->path());
        }
    }
    for (const std::filesystem::path& path : unfinished) {
        std::filesystem::remove(path, error);
    }
}

/// Excludes other processes that write settings to files in the folder, until it is destroyed. The
/// system ends the lock of a killed process. Not locked if another process does not end its write
/// in time, if the file system has no locks, and in a folder of another user, who could hold it.
FileDescriptor lockFolder(const std::filesystem::path& folder) {
    FileDescriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status {};
    if (!descriptor.isOpen() || fstat(descriptor.get(), &status) != 0 ||
        status.st_uid != geteuid()) {
        return {};
    }
    // As long as QSettings would wait for its own lock.
    constexpr std::chrono::milliseconds longestWait(30'000);
    constexpr std::chrono::milliseconds step(10);
    for (std::chrono::milliseconds waited(0); isLockedByOthers(descriptor); waited += step) {
        if (errno != EWOULDBLOCK || waited >= longestWait) {
            return {};
        }
        std::this_thread::sleep_for(step);
    }
    return descriptor;
}

/// Removes what a process left that was killed during a write: its new file and its lock files.
/// QSettings would wait 30 seconds for a process that was killed before it wrote its id into the
/// lock file, or whose id another process has now. A running process also holds a lock of the
/// system on the file. `isAlone` says that no other process writes, except one of an earlier
/// version.
void removeAbandonedFiles(const std::filesystem::path& settings, bool isAlone) {
    const std::filesystem::path path = lockOf(settings);
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat opened {};
    if (!file.isOpen() || fstat(file.get(), &opened) != 0 || !S_ISREG(opened.st_mode)) {
        return;
    }
    const auto isStillThere = [&] {
        struct stat named {};
        return lstat(path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
               opened.st_ino == named.st_ino;
    };
    // A process creates the file, then locks it. The attempt below must not come between.
    constexpr int steps = 20;
    for (int step = 0; step < steps && !isAlone && isNew(opened); ++step) {
        std::this_thread::sleep_for(timeToLock / steps);
        if (!isStillThere()) {
            return;
        }
    }
    if (!isLockedByOthers(file) && isStillThere()) {
        // While the lock file exists, no process writes. Without it, the new files would stay.
        removeUnfinishedFiles(settings, opened);
        // With this one, QSettings removes the lock file of a process that is gone.
        unlink((path.string() + ".rmlock").c_str());
        unlink(path.c_str());
    }
}

/// QSettings does not report why a write failed, so repeat the steps to find the reason.
int reasonForFailedWrite(const std::filesystem::path& file, std::size_t added) {
    std::string probe = file.string() + ".XXXXXX";
    const int descriptor = mkostemp(probe.data(), O_CLOEXEC);
    if (descriptor < 0) {
        return errno;
    }
    struct stat status {};
    const off_t length = stat(file.c_str(), &status) == 0 ? status.st_size : 0;
    // Includes space for the lock file.
    const int error = posix_fallocate(descriptor, 0, length + static_cast<off_t>(added) + 4096);
    close(descriptor);
    unlink(probe.c_str());
    return error == 0 ? EIO : error;
}

/// Makes the renaming of the file survive a power failure.
void synchronizeDirectory(const std::filesystem::path& file) {
    const int descriptor = open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isDone = descriptor >= 0 && fsync(descriptor) == 0;
    const int error = errno;
    if (descriptor >= 0) {
        close(descriptor);
    }
    if (!isDone) {
        failToSave(file, error);
    }
}

} // namespace

std::filesystem::path SettingsUserDefaults::defaultFile() {
    return std::filesystem::path(
               QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
                   .toStdString()) /
           "orvel-agent" / "defaults.conf";
}

SettingsUserDefaults::SettingsUserDefaults(const std::filesystem::path& file)
    : file_(std::filesystem::absolute(file)) {
    read();
}

void SettingsUserDefaults::read() {
    const std::lock_guard writeLock(writeMutex_);
    tavrin::refuseFileOfOthers(file_, "Could not read the agent's settings");
    // Treating an unreadable file as empty would lose the user's choices.
    try {
        static_cast<void>(tavrin::openRegularFile(file_));
    } catch (const tavrin::PlatformError& error) {
        if (error.code() != ENOENT) {
            failToRead(file_, error.code());
        }
    }
    const QSettings settings(qString(file_), lineFormat());
    if (settings.status() != QSettings::NoError) {
        failToRead(file_, EBADMSG);
    }
    auto values = valuesOf(settings);
    const std::lock_guard lock(valuesMutex_);
    values_.swap(values);
}

std::unique_ptr<tavrin::Interface> SettingsUserDefaults::tryLock() {
    auto lock = tavrin::tryLockFile(file_.string() + ".inuse");
    if (lock) {
        read();
    }
    return lock;
}

std::optional<tavrin::UserDefaults::Value> SettingsUserDefaults::value(std::string_view key) const {
    const std::lock_guard lock(valuesMutex_);
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

void SettingsUserDefaults::set(std::string_view key, Value value) {
    write(key, std::move(value));
}

void SettingsUserDefaults::remove(std::string_view key) {
    write(key, std::nullopt);
}

void SettingsUserDefaults::write(std::string_view key, const std::optional<Value>& value) {
    const std::lock_guard writeLock(writeMutex_);
    // Another user could read the settings, or stop the write for half a minute.
    for (const std::filesystem::path& path : {file_, lockOf(file_)}) {
        tavrin::refuseFileOfOthers(path, "Could not save the agent's settings");
    }
    makePrivate(file_);
    // The lock file of QSettings alone does not exclude others: a process removes its name after it
    // has unlocked it, and that can be the name of a later one.
    const FileDescriptor folder = lockFolder(file_.parent_path());
    removeAbandonedFiles(file_, folder.isOpen());
    const QString qKey = QString::fromUtf8(key.data(), static_cast<qsizetype>(key.size()));
    QSettings settings(qString(file_), lineFormat());
    const auto set = [&settings, &qKey](const QVariant& stored) {
        if (stored.isValid()) {
            settings.setValue(qKey, stored);
        } else {
            settings.remove(qKey);
        }
    };
    const QVariant old = settings.value(qKey);
    const QString text = value ? QString::fromStdString(SettingsFormat::textOf(*value)) : QString();
    set(value ? QVariant(text) : QVariant());
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        const int reason =
            settings.status() == QSettings::FormatError
                ? EBADMSG
                : reasonForFailedWrite(file_, 2 * static_cast<std::size_t>(text.size()));
        // QSettings would write the failed change with the next one, so revert it.
        set(old);
        failToSave(file_, reason);
    }
    auto values = valuesOf(settings);
    {
        const std::lock_guard lock(valuesMutex_);
        values_.swap(values);
    }
    synchronizeDirectory(file_);
}

} // namespace orvel
