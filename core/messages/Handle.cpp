// SPDX-License-Identifier: Apache-2.0
#include "core/messages/Handle.h"

#include "core/Text.h"

namespace tavrin {

Handle Handle::classify(std::string_view raw) {
    std::string repaired;
    if (!isValidUTF8(raw)) {
        repaired = repairedUTF8(raw);
        raw = repaired;
    }
    raw = trimmed(raw);
    if (raw.find('@') != std::string_view::npos) {
        return {Kind::Email, lowercased(raw)};
    }
    return {Kind::Phone, std::string(raw)};
}

} // namespace tavrin
