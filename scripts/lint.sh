#!/usr/bin/env bash
# Checks every tracked source: layout (clang-format; shellcheck for scripts) and common mistakes (clang-tidy).
#
# usage: scripts/lint.sh [--format | --tidy [PATH...]]     both without an option
set -euo pipefail
. "$(dirname "$0")/lib.sh"

# Another release formats a little differently: 14 is the one that counts.
formatter=$(command -v clang-format-14 || true)
tidy=$(command -v clang-tidy-14 || command -v clang-tidy || true)

tracked() {
    # A checkout may belong to somebody else, as it does in most containers.
    git -c safe.directory="$PWD" ls-files -z -- "$@"
}

check_format() {
    [[ -n $formatter ]] || die "clang-format-14 is missing: scripts/install-deps.sh test"
    tracked '*.h' '*.cpp' | xargs -0 --no-run-if-empty -n 50 "$formatter" --dry-run -Werror
}

check_scripts() {
    tracked '*.sh' .ci/run | xargs -0 --no-run-if-empty shellcheck
}

# Sources that the release tree compiles; a header is seen with whatever includes it.
check_tidy() {
    [[ -n $tidy ]] || die "clang-tidy is missing: scripts/install-deps.sh test"
    quietly cmake --preset release
    local commands=build/tidy/compile_commands.json file files=()
    # clang-tidy takes the headers that GCC has precompiled for its own, and fails on them.
    mkdir -p build/tidy
    sed 's/ -Winvalid-pch -include [^ ]*//' build/release/compile_commands.json >"$commands"
    while IFS= read -r -d '' file; do
        if [[ $file == *.cpp ]] && grep -qF "\"$PWD/$file\"" "$commands"; then files+=("$file"); fi
    done < <(tracked "$@")
    ((${#files[@]} > 0)) || die "nothing there that the release tree compiles: $*"
    printf '%s\0' "${files[@]}" | xargs -0 -n 1 -P "$(nproc)" "$tidy" -p build/tidy --quiet \
        --warnings-as-errors='*' --extra-arg=-Wno-unknown-warning-option \
        2> >(grep -v ' warnings\? generated\.$' >&2)
}

case ${1:-} in
    --format)
        check_format
        check_scripts
        ;;
    --tidy)
        shift
        if (($# == 0)); then set -- .; fi
        check_tidy "$@"
        ;;
    "")
        check_format
        check_scripts
        check_tidy .
        ;;
    *)
        echo "usage: ${0##*/} [--format | --tidy [PATH...]]" >&2
        exit 2
        ;;
esac
