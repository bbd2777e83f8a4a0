// SPDX-License-Identifier: Apache-2.0
#include "core/TokenVariable.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace tavrin::TokenVariable {

std::optional<Secret> take() {
    char* variable = std::getenv(name);
    if (variable == nullptr) {
        return std::nullopt;
    }
    Secret token{std::string(variable)};
    std::fill_n(variable, token.text().size(), '\0');
    unsetenv(name);
    return token;
}

} // namespace tavrin::TokenVariable
