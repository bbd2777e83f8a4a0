// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Errors.h"

namespace tavrin {

/// The error with a sentence for the user that contains neither host nor request.
[[nodiscard]] URLError urlError(URLErrorCode code);

} // namespace tavrin
