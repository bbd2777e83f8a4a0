// SPDX-License-Identifier: Apache-2.0
#include "core/WriteAccess.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tavrin {

namespace {

/// Calls `read` with a buffer that is large enough. Returns whether it found an entry.
template <typename Read>
bool readEntry(std::vector<char>& buffer, Read read) {
    constexpr std::size_t maximumBytes = std::size_t{1} << 20U;
    for (buffer.resize(1024); buffer.size() <= maximumBytes; buffer.resize(2 * buffer.size())) {
        const int error = read(buffer.data(), buffer.size());
        if (error != ERANGE && error != EINTR) {
            return error == 0;
        }
    }
    return false;
}

bool isUsersPrivateGroup(gid_t number) {
    passwd user{};
    passwd* foundUser = nullptr;
    std::vector<char> userTexts;
    group group{};
    struct group* foundGroup = nullptr;
    std::vector<char> groupTexts;
    return readEntry(
               userTexts,
               [&](char* buffer, std::size_t size) {
                   return getpwuid_r(geteuid(), &user, buffer, size, &foundUser);
               }) &&
           foundUser != nullptr &&
           readEntry(
               groupTexts,
               [&](char* buffer, std::size_t size) {
                   return getgrgid_r(number, &group, buffer, size, &foundGroup);
               }) &&
           foundGroup != nullptr && isPrivateGroup(user, group);
}

/// Whether the number stands for all users that this user namespace does not have. In a container,
/// these include the root that owns the folders of the system.
bool standsForUnknownUsers(uid_t owner) {
    std::ifstream overflow("/proc/sys/kernel/overflowuid");
    uid_t unknown = 0;
    if (!(overflow >> unknown) || owner != unknown) {
        return false;
    }
    std::ifstream map("/proc/self/uid_map");
    std::uint64_t first = 0;
    std::uint64_t outside = 0;
    std::uint64_t count = 0;
    bool isMapped = false;
    while (map >> first >> outside >> count) {
        isMapped = isMapped || (unknown >= first && unknown - first < count);
    }
    return !isMapped;
}

} // namespace

bool isPrivateGroup(const passwd& user, const group& group) {
    const std::string_view name = user.pw_name;
    if (group.gr_gid != user.pw_gid || group.gr_name != name) {
        return false;
    }
    for (char** member = group.gr_mem; member != nullptr && *member != nullptr; ++member) {
        if (*member != name) {
            return false;
        }
    }
    return true;
}

bool canOthersWrite(const struct stat& status) {
    if ((status.st_uid != geteuid() && status.st_uid != 0) || (status.st_mode & S_IWOTH) != 0) {
        return true;
    }
    return (status.st_mode & S_IWGRP) != 0 && !isUsersPrivateGroup(status.st_gid);
}

bool canOthersChange(const std::filesystem::path& path) {
    namespace fs = std::filesystem;
    constexpr int maximumLinks = 40;
    int links = 0;
    std::error_code error;
    fs::path pending = fs::absolute(path, error);
    fs::path current;
    while (!pending.empty()) {
        // A link's absolute target starts again at the root.
        current = pending.is_absolute() ? fs::path("/") : current / *pending.begin();
        fs::path rest;
        for (auto part = std::next(pending.begin()); part != pending.end(); ++part) {
            rest /= *part;
        }
        pending = std::move(rest);
        struct stat status {};
        if (lstat(current.c_str(), &status) != 0) {
            // The folders above have been examined. In one with the sticky bit, others can create
            // the missing entry.
            return stat(current.parent_path().c_str(), &status) == 0 && canOthersWrite(status);
        }
        if (S_ISLNK(status.st_mode)) {
            const bool isOfOthers = status.st_uid != geteuid() && status.st_uid != 0 &&
                                    !standsForUnknownUsers(status.st_uid);
            if (isOfOthers || ++links > maximumLinks) {
                return true;
            }
            const fs::path target = fs::read_symlink(current, error);
            if (error) {
                return true;
            }
            current = current.parent_path();
            pending = pending.empty() ? target : target / pending;
        } else if (pending.empty() ? canOthersWrite(status) : canOthersReplaceFiles(status)) {
            return true;
        }
    }
    return false;
}

bool canOthersReplaceFiles(const struct stat& folder) {
    const bool isOwn = folder.st_uid == geteuid() || folder.st_uid == 0;
    if (!isOwn && standsForUnknownUsers(folder.st_uid)) {
        return (folder.st_mode & S_ISVTX) == 0 && (folder.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    }
    // In a folder with the sticky bit, only its owner may rename or remove a file.
    return !isOwn || ((folder.st_mode & S_ISVTX) == 0 && canOthersWrite(folder));
}

} // namespace tavrin
