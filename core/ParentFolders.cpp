// SPDX-License-Identifier: Apache-2.0
#include "core/ParentFolders.h"

#include "core/FileErrors.h"

#include <sys/stat.h>

#include <cerrno>

namespace tavrin {

std::optional<PlatformError> createParentFolders(const std::filesystem::path& file) {
    std::optional<PlatformError> failure;
    std::filesystem::path folder;
    for (const std::filesystem::path& part : file.parent_path()) {
        folder /= part;
        if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST && !failure) {
            const int error = errno;
            struct stat status {};
            // Some file systems check the rights before they see that the folder exists.
            if (stat(folder.c_str(), &status) != 0) {
                failure = fileError(error, "Could not make the folder", folder);
            }
        }
    }
    return failure;
}

} // namespace tavrin
