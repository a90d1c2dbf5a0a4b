# shellcheck shell=bash
# What the scripts beside this file share. Source it: it changes to the top of the source tree.

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit

# The generator of a fresh build tree; one that exists keeps its own.
if [[ -z ${CMAKE_GENERATOR:-} ]] && command -v ninja >/dev/null; then
    export CMAKE_GENERATOR=Ninja
fi

die() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# Runs a command; its output appears only when it fails. The file that keeps it has no name: however the script ends,
# it goes.
quietly() {
    local file log status=0
    file=$(mktemp)
    exec {log}>"$file"
    rm "$file"
    "$@" >&"$log" 2>&1 || status=$?
    if ((status != 0)); then cat "/dev/fd/$log" >&2; fi
    exec {log}>&-
    return "$status"
}

# A planted fault must have been reported: by a verdict whose status is 1, and no other. Makes of it the script's own.
judge_canary() {
    if ((status == 1)); then
        status=0
        echo "canary: $1 was reported"
    else
        status=1
        echo "canary: $1 WENT UNNOTICED"
    fi
}

# Builds one program for a script that a person runs: the release tree, and of it no more than that. A tree that exists
# keeps its options, so that a developer's tests stay configured.
build_program() {
    scripts/install-deps.sh "$1"
    printf 'building %s ...\n' "$2" >&2
    [[ -f build/release/CMakeCache.txt ]] || quietly cmake --preset release -DBUILD_TESTING=OFF
    quietly cmake --build --preset release --target "$2" -j "$(nproc)"
}

# Runs a command, a build or ctest, for a preset.
# The thread sanitizer of GCC 12 does not start where the kernel randomises addresses by more than 28 bits
# (vm.mmap_rnd_bits): programs built with it get a fixed layout, which their children inherit. A container may forbid
# the call; then it is tried as it is.
run_for() {
    local preset=$1
    shift
    if [[ $preset == tsan ]] && setarch -R true 2>/dev/null; then
        setarch -R "$@"
    else
        "$@"
    fi
}
