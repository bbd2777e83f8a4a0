// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace orvel {

/// A shell script that opens `$0` with the program `$2` one second after the process `$1` has
/// ended, or after a minute. Opened earlier, the system would activate the old copy. The values are
/// arguments, because a path may contain any character.
inline constexpr auto relaunchScript =
    R"(i=0; while [ $i -lt 600 ] && kill -0 "$1" 2>/dev/null; do sleep 0.1; i=$((i + 1)); done; )"
    R"(sleep 1; exec "$2" "$0")";

} // namespace orvel
