// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// For the shell, with `$0` to be opened by the program `$2` a second after the process `$1` has
/// ended, but it does not wait for that end for ever. Opened any sooner, it would be the old copy
/// that is brought to the front. They are arguments, because a path may hold any character.
inline constexpr auto relaunchScript =
    R"(i=0; while [ $i -lt 600 ] && kill -0 "$1" 2>/dev/null; do sleep 0.1; i=$((i + 1)); done; )"
    R"(sleep 1; exec "$2" "$0")";

} // namespace orvel
