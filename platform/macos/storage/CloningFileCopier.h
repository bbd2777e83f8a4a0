// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/FileCopier.h"

namespace orvel {

/// Clones, which takes no time and no room, where the file system can; copies the bytes otherwise.
class CloningFileCopier final : public tavrin::FileCopier {
public:
    void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const tavrin::CancellationToken& cancellation) override;
};

} // namespace orvel
