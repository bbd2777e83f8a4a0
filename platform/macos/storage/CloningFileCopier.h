// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/messages/FileCopier.h"

namespace orvel {

/// Clones the file if the file system supports it, which is fast and needs no space. Otherwise
/// copies the bytes.
class CloningFileCopier final : public tavrin::FileCopier {
public:
    void copy(
        const std::filesystem::path& source,
        const std::filesystem::path& destination,
        const tavrin::CancellationToken& cancellation) override;
};

} // namespace orvel
