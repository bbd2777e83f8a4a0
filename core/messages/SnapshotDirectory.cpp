// SPDX-License-Identifier: Apache-2.0
#include "core/messages/SnapshotDirectory.h"

#include "core/FileErrors.h"
#include "core/ParentFolders.h"
#include "core/WriteAccess.h"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace tavrin {

namespace {

namespace fs = std::filesystem;

constexpr int maximumAttempts = 10;
constexpr auto couldNotMake = "Could not make the folder";
/// The next scan removes the rest.
constexpr std::size_t maximumCandidates = 1000;

std::string makeName() {
    std::string name = boost::uuids::to_string(boost::uuids::random_generator()());
    std::transform(name.begin(), name.end(), name.begin(), [](unsigned char character) {
        return static_cast<char>(std::toupper(character));
    });
    return std::string(SnapshotDirectory::prefix) + name;
}

bool isName(std::string_view name) {
    constexpr std::string_view form = "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX";
    if (!name.starts_with(SnapshotDirectory::prefix)) {
        return false;
    }
    name.remove_prefix(SnapshotDirectory::prefix.size());
    return std::equal(name.begin(), name.end(), form.begin(), form.end(), [](char is, char should) {
        constexpr std::string_view digits = "0123456789ABCDEF";
        return should == 'X' ? digits.find(is) != std::string_view::npos : is == should;
    });
}

/// Cheaper than opening: any user can make many such names in the system's temporary folder.
bool isOwnDirectory(const fs::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid();
}

FileDescriptor openAndLock(const fs::path& directory) {
    return SnapshotDirectory::tryLock(
        FileDescriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)),
        directory);
}

} // namespace

void LiveSnapshots::add(const fs::path& directory) {
    const std::lock_guard lock(mutex_);
    directories_.insert(directory);
}

void LiveSnapshots::remove(const fs::path& directory) {
    const std::lock_guard lock(mutex_);
    directories_.erase(directory);
}

void LiveSnapshots::removeDirectories() {
    const std::lock_guard lock(mutex_);
    for (const fs::path& directory : directories_) {
        std::error_code ignored;
        fs::remove_all(directory, ignored);
    }
}

SnapshotDirectory::SnapshotDirectory(std::shared_ptr<LiveSnapshots> live) : live_(std::move(live)) {
    const fs::path folder = parent();
    const std::optional<PlatformError> noFolder = createParentFolders(folder / prefix);
    // `removeAbandoned` of another process may remove the directory before it is locked. Then try a
    // new one. The loop has a limit because some file systems have no locks.
    for (int attempt = 0; attempt < maximumAttempts; ++attempt) {
        path_ = folder / makeName();
        if (mkdir(path_.c_str(), S_IRWXU) != 0) {
            throw errno == ENOENT && noFolder ? *noFolder : fileError(errno, couldNotMake, path_);
        }
        if (canOthersChange(path_)) {
            rmdir(path_.c_str());
            throw PlatformError(
                std::string(posixErrorDomain),
                EPERM,
                "Other users could take the private copy of the messages away from " +
                    folder.string() +
                    ". Set TMPDIR to a folder of your own, or remove their right to write with "
                    "chmod go-w.");
        }
        lock_ = openAndLock(path_);
        if (lock_.isOpen()) {
            if (live_ != nullptr) {
                live_->add(path_);
            }
            return;
        }
        std::error_code ignored;
        fs::remove(path_, ignored);
    }
    throw fileError(ENOLCK, "Could not lock the folder", path_);
}

SnapshotDirectory::~SnapshotDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
    if (live_ != nullptr) {
        live_->remove(path_);
    }
}

fs::path SnapshotDirectory::parent() {
    const char* directory = std::getenv("TMPDIR");
    return directory != nullptr && *directory != '\0' ? directory : "/tmp";
}

std::size_t SnapshotDirectory::removeAbandoned(const fs::path& folder) {
    std::vector<fs::path> candidates;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (candidates.size() == maximumCandidates) {
            break;
        }
        if (isName(entry->path().filename().native()) && isOwnDirectory(entry->path())) {
            candidates.push_back(entry->path());
        }
    }
    std::size_t removed = 0;
    std::optional<fs::filesystem_error> failure;
    for (const fs::path& candidate : candidates) {
        const FileDescriptor held = openAndLock(candidate);
        std::error_code reason;
        if (!held.isOpen()) {
            continue;
        }
        if (fs::remove_all(candidate, reason); !reason) {
            ++removed;
        } else if (!failure) {
            failure.emplace("Could not remove a directory", candidate, reason);
        }
    }
    if (failure) {
        throw *failure;
    }
    return removed;
}

FileDescriptor SnapshotDirectory::tryLock(FileDescriptor directory, const fs::path& path) {
    struct stat locked {};
    struct stat named {};
    if (!directory.isOpen() || fstat(directory.get(), &locked) != 0 || locked.st_uid != geteuid() ||
        flock(directory.get(), LOCK_EX | LOCK_NB) != 0 || lstat(path.c_str(), &named) != 0 ||
        locked.st_dev != named.st_dev || locked.st_ino != named.st_ino) {
        return {};
    }
    return directory;
}

} // namespace tavrin
