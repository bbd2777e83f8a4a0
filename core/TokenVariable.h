// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "core/Secret.h"

#include <optional>

/// The environment variable from which programs take a bearer token.
namespace tavrin::TokenVariable {

inline constexpr const char* name = "ORVEL_TOKEN";

/// For the help of programs that have the options --token and --token-file.
inline constexpr const char* advice =
    "Prefer --token-file or the\nvariable ORVEL_TOKEN to --token: a command line can be seen by "
    "other users of this machine.";

/// Removes the token from the environment, so that child processes do not inherit it and other
/// processes cannot read it there. Call it before any thread starts.
[[nodiscard]] std::optional<Secret> take();

} // namespace tavrin::TokenVariable
