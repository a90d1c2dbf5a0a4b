#!/usr/bin/env bash
# Installs what is missing for a purpose; does nothing, and needs no network, where everything is there.
# Package names hold for Debian 12 and Ubuntu 24.04.
#
# usage: scripts/install-deps.sh build|test|bench|docs|package|fuzz|coverage
set -euo pipefail

# What must be there, and the package that brings it: a command, or a file by its path.
readonly BUILD=(g++:g++ cmake:cmake ninja:ninja-build /usr/include/CLI/CLI.hpp:libcli11-dev
    /usr/include/fmt/format.h:libfmt-dev /usr/include/nlohmann/json.hpp:nlohmann-json3-dev
    /usr/include/ncurses.h:libncurses-dev scdoc:scdoc)
readonly TEST=("${BUILD[@]}" clang++:clang clang-format-14:clang-format-14 clang-tidy:clang-tidy
    shellcheck:shellcheck git:git cmp:diffutils ipcs:util-linux unshare:util-linux setarch:util-linux nm:binutils
    strace:strace spin:spin gcc:gcc pkg-config:pkgconf /usr/include/gtest/gtest.h:libgtest-dev)
readonly BENCH=("${BUILD[@]}" strace:strace)
readonly DOCS=(mkdocs:mkdocs doxygen:doxygen)
readonly COVERAGE=("${BUILD[@]}" gcovr:gcovr strace:strace unshare:util-linux nm:binutils
    /usr/include/gtest/gtest.h:libgtest-dev)
# What the benchmark is worth more with; it does without what this system has not.
readonly PEERS=(gnuplot:gnuplot-nox /usr/include/zmq.h:libzmq3-dev
    /usr/include/boost/interprocess/ipc/message_queue.hpp:libboost-dev /usr/include/iceoryx:libiceoryx-posh-dev
    /usr/include/sys/acl.h:libacl1-dev)
readonly PACKAGE=("${BUILD[@]}" "${DOCS[@]}" lintian:lintian dpkg-shlibdeps:dpkg-dev systemd-sysusers:systemd)
readonly FUZZ=("${BUILD[@]}" clang++:clang libclang_rt.fuzzer-x86_64.a:libclang-rt-dev)

is_there() {
    case $1 in
        /*) [[ -e $1 ]] ;;
        *.a) [[ -e $(clang++ -print-file-name="$1" 2>/dev/null) ]] ;;
        *) command -v "$1" >/dev/null ;;
    esac
}

missing_packages() {
    local need
    for need in "$@"; do
        is_there "${need%%:*}" || printf '%s\n' "${need##*:}"
    done | sort -u
}

as_root() {
    if ((EUID == 0)); then "$@"; else sudo "$@"; fi
}

case ${1:-} in
    build) needs=("${BUILD[@]}") ;;
    test) needs=("${TEST[@]}") ;;
    bench) needs=("${BENCH[@]}") ;;
    docs) needs=("${DOCS[@]}") ;;
    package) needs=("${PACKAGE[@]}") ;;
    fuzz) needs=("${FUZZ[@]}") ;;
    coverage) needs=("${COVERAGE[@]}") ;;
    *)
        echo "usage: ${0##*/} build|test|bench|docs|package|fuzz|coverage" >&2
        exit 2
        ;;
esac

extras=()
if [[ $1 == bench ]]; then extras=("${PEERS[@]}"); fi

mapfile -t packages < <(missing_packages "${needs[@]}")
mapfile -t wanted < <(missing_packages "${extras[@]}")
((${#packages[@]} + ${#wanted[@]} == 0)) && exit 0
if ! command -v apt-get >/dev/null; then
    echo "no apt-get here: install by the means of this system: ${packages[*]}; if there are: ${wanted[*]}" >&2
    ((${#packages[@]} == 0)) && exit 0
    exit 1
fi

install() {
    echo "missing: $*" >&2
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >&2
}

as_root apt-get update -qq || ((${#packages[@]} == 0)) # what is only wanted is left out then
if ((${#packages[@]} > 0)); then install "${packages[@]}"; fi
for package in "${wanted[@]}"; do install "$package" || echo "not to be had here: $package" >&2; done
