# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
#
# Functions of ./run and ./test. To be sourced in the root of the tree.

jobs=$(nproc)

# step TITLE LOG COMMAND…: runs the command and writes its output to build/log/LOG.log. On failure,
# prints the end of the log and exits.
step() {
    local title=$1 log=build/log/$2.log start=$SECONDS status=0
    shift 2
    mkdir -p build/log
    echo "== $title"
    "$@" >"$log" 2>&1 || status=$?
    if ((status != 0)); then
        tail -n 200 "$log" >&2
        echo "$title failed with status $status. The complete output is in $log" >&2
        exit 1
    fi
    if ((SECONDS - start >= 10)); then
        echo "   $((SECONDS - start)) s"
    fi
}

# build PRESET [TARGET…]: configures and builds, with ccache and mold if they are installed.
build() {
    local preset=$1
    shift
    local options=()
    if command -v ccache >/dev/null; then
        options+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    elif [[ $preset != tidy && $preset != fuzz* ]]; then
        options+=(-DORVEL_PRECOMPILE_HEADERS=ON)
    fi
    if command -v mold >/dev/null; then
        options+=(-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=mold)
    fi
    step "Configuring ($preset)" "configure-$preset" cmake --preset "$preset" "${options[@]}"
    step "Building ($preset)" "build-$preset" \
        cmake --build --preset "$preset" --parallel "$jobs" ${1:+--target "$@"}
}
