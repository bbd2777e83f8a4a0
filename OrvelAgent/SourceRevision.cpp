// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/SourceRevision.h"

#include "OrvelAgent/SourceRevisionName.h"

namespace orvel {

std::string_view sourceRevision() {
    return sourceRevisionName;
}

} // namespace orvel
