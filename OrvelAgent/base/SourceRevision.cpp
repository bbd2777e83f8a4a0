// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/base/SourceRevision.h"

#include "OrvelAgent/base/SourceRevisionName.h"

namespace orvel {

std::string_view sourceRevision() {
    return sourceRevisionName;
}

} // namespace orvel
