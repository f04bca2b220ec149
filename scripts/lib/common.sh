# shellcheck shell=bash
# What the scripts share. Sourced by them, never run.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
export root

say() {
    printf '== %s\n' "$*" >&2
}

fail() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

wrong_use() {
    printf '%s: %s; --help shows how it is used\n' "${0##*/}" "$*" >&2
    exit 2
}

# The comment at the head of a script is its help.
help_if_asked() {
    local argument
    for argument; do
        if [[ $argument == -h || $argument == --help ]]; then
            sed -n '3,/^[^#]/{/^#/s/^# \{0,1\}//p}' "$0"
            exit 0
        fi
    done
}

# Runs a command without randomised addresses where that is allowed: the thread sanitizer of
# clang 14 doesn't start on kernels that randomise more than 28 bits.
steady_addresses() {
    if setarch -R true 2>/dev/null; then
        setarch -R "$@"
    else
        "$@"
    fi
}

# build_preset PRESET [TARGET...]
build_preset() {
    local preset=$1 options=() targets=()
    shift
    (($# == 0)) || targets=(--target "$@")
    "$root/scripts/install-packages"
    if command -v ccache >/dev/null; then
        options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
        export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1  # one clone's objects serve the next
        export CCACHE_SLOPPINESS=pch_defines,time_macros  # without it nothing with precompiled headers is kept
    fi
    say "configuring $preset"
    (cd "$root" && cmake --preset "$preset" "${options[@]}" --log-level=WARNING >/dev/null)
    say "building $preset"
    (cd "$root" && NINJA_STATUS="[%f/%t %es] " \
        steady_addresses cmake --build --preset "$preset" --parallel "$(nproc)" "${targets[@]}")
}
