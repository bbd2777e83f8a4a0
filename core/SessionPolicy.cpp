// SPDX-License-Identifier: Apache-2.0
#include "core/SessionPolicy.h"

namespace tavrin::SessionPolicy {

bool isSessionExpired(int status, std::optional<std::string_view> code) {
    return status == 401 && code == expiredCode;
}

} // namespace tavrin::SessionPolicy
