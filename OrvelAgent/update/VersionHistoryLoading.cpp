// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/update/VersionHistoryLoading.h"

#include "core/Text.h"
#include "platform/Bundle.h"

#include <optional>
#include <string>

namespace orvel {

tavrin::VersionHistory loadVersionHistory(const Bundle& bundle) {
    tavrin::VersionHistory history;
    const std::optional<std::string> text = bundle.resource("CHANGELOG", "md");
    if (text && tavrin::isValidUTF8(*text)) {
        history.releases = tavrin::VersionHistory::parse(*text);
    }
    return history;
}

} // namespace orvel
