// SPDX-License-Identifier: Apache-2.0
#include "core/ParentFolders.h"

#include <sys/stat.h>

namespace tavrin {

void createParentFolders(const std::filesystem::path& file) {
    std::filesystem::path folder;
    for (const std::filesystem::path& part : file.parent_path()) {
        folder /= part;
        mkdir(folder.c_str(), S_IRWXU);
    }
}

} // namespace tavrin
