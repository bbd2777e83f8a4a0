// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <filesystem>

struct group;
struct passwd;

namespace tavrin {

/// Whether the owner and the mode of a file or folder let users other than this one and root write
/// to it. A group may write if it is this user's private group: many systems give each user such a
/// group and a umask of 002. Access control lists are not examined. Any thread. May read the
/// system's lists of users and groups.
[[nodiscard]] bool canOthersWrite(const struct stat& status);

/// Whether users other than this one and root can rename or remove this user's files in the folder.
/// Unlike `canOthersWrite`, accepts a folder with the sticky bit, and in a user namespace a folder
/// of a user that it does not have, such as the system's root.
[[nodiscard]] bool canOthersReplaceFiles(const struct stat& folder);

/// Whether users other than this one and root can change what is found at the path: write to it, or
/// put something else in the place of it, of a folder above it, or of a link on the way. The sticky
/// bit protects an entry of this user or root in a folder that others may write to, but not the
/// path's last folder, where others can add files.
[[nodiscard]] bool canOthersChange(const std::filesystem::path& path);

/// Whether the group is the user's private one: the user's primary group, with the user's name and
/// no other member.
[[nodiscard]] bool isPrivateGroup(const passwd& user, const group& group);

} // namespace tavrin
