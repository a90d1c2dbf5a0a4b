#!/usr/bin/env bash
# Runs the tests with counters in the library and prints lines and branches per file, of the library as a whole, and of
# what reads other processes' data (tests/coverage/readers.txt), for which there are goals. Branches that the compiler
# makes for exceptions, and those that it knows nobody reaches, are left out. The table and the last line are made of
# build/coverage/coverage.csv.
#
# usage: scripts/coverage.sh [--tests REGEX | --canary]
set -euo pipefail
. "$(dirname "$0")/lib.sh"

usage() {
    cat <<'TEXT'
usage: scripts/coverage.sh [--tests REGEX | --canary]
  --tests   these tests alone, by their names
  --canary  without the tests of the search for channels, which must be missed
exit status: 0 both goals are met (with --canary: one is missed)
TEXT
    exit "$1"
}

readonly TREE=build/coverage
selection=()
canary=
while (($# > 0)); do
    case $1 in
        --tests)
            [[ -n ${2:-} ]] || usage 2 >&2
            selection=(-R "$2")
            shift
            ;;
        --canary)
            canary=yes
            selection=(-E 'FastChannel|FastPath|EntriesCount')
            ;;
        -h | --help) usage 0 ;;
        *) usage 2 >&2 ;;
    esac
    shift
done

scripts/install-deps.sh coverage
printf 'building the tests with counters ...\n' >&2
[[ -f $TREE/CMakeCache.txt ]] || quietly cmake --preset coverage -DZRK4_PROGRAMS=OFF -DZRK4_TOOLS=OFF
quietly cmake --build --preset coverage -j "$(nproc)"
find "$TREE" -name '*.gcda' -delete
quietly ctest --preset coverage -j "$(nproc)" "${selection[@]}"
gcovr --root . --filter 'library/' --exclude-throw-branches --exclude-unreachable-branches \
    --csv --output "$TREE/coverage.csv" "$TREE/library" "$TREE/tests"
status=0
awk -f tests/coverage/summary.awk tests/coverage/readers.txt "$TREE/coverage.csv" || status=$?
[[ -z $canary ]] && exit "$status"
if ((status != 0)); then
    echo "canary: the missing tests were noticed"
    exit 0
fi
echo "canary: the missing tests WENT UNNOTICED"
exit 1
