#!/usr/bin/env bash
# Feeds hostile data to everything that reads what other processes have written: coverage-guided fuzzers, two at a time,
# under the address and undefined-behaviour sanitizers. The record has one line per fuzzer; the last line is derived from
# it. See docs/fuzzing.md.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

readonly TARGETS=(blocks entries run_blocks copies datagrams segments)
readonly TREE=build/fuzz

usage() {
    cat <<'TEXT'
usage: scripts/fuzz.sh SECONDS [--ledger] | --runs N [--ledger] [--target TARGET] ...
       scripts/fuzz.sh --canary
       scripts/fuzz.sh --replay TARGET FILE
       scripts/fuzz.sh --minimise
  SECONDS     all targets together, about that long
  --runs      each target that many inputs, the same each time: the corpus, and what follows from it
  --target    this one alone; may be repeated
  --ledger    adds the runs without a finding to proofs/fuzz/ledger.tsv
  --canary    on a search that believes a block's length, which must be found
  --replay    one input, for instance a finding
  --minimise  what the last runs have found new joins the corpus in the tree, as few files as cover the same
targets: blocks entries run_blocks copies datagrams segments
exit status: 0 nothing found (with --canary: the planted fault was found)
TEXT
    exit "$1"
}

build_fuzzers() {
    scripts/install-deps.sh fuzz
    printf 'building the fuzzers ...\n' >&2
    if [[ ! -f $TREE/build.ninja && ! -f $TREE/Makefile ]]; then
        rm -rf "$TREE/CMakeCache.txt" "$TREE/CMakeFiles" # an attempt that did not come to its end
        quietly cmake -S . -B "$TREE" -DCMAKE_CXX_COMPILER=clang++ -DBUILD_TESTING=OFF -DZRK4_PROGRAMS=ON
    fi
    quietly cmake --build "$TREE" --target "$@" -j "$(nproc)"
}

tree_corpus() { printf 'proofs/fuzz/corpus/%s' "$1"; }

# Names the corpus that a run began with.
corpus_hash() {
    (cd "$(tree_corpus "$1")" && find . -type f -print0 | sort -z | xargs -0 -r sha256sum) | sha256sum | cut -c1-16
}

# One fuzzer, and its line in the record. A longer input adds only more of the same. What the library writes to standard
# error goes nowhere, functions are not looked up by name, and nobody else adds to the corpus: all that costs.
run_target() {
    local name=$1 status=0 log=$TREE/$1.log
    shift
    mkdir -p "$TREE/found/$name" "$TREE/findings/$name"
    "$TREE/bin/fuzz_$name" -max_len=1024 -entropic=0 -timeout=10 -rss_limit_mb=1024 -print_final_stats=1 \
        -close_fd_mask=2 -print_funcs=0 -reload=0 \
        -artifact_prefix="$TREE/findings/$name/" "$@" >"$log" 2>&1 || status=$?
    if ((status != 0)); then tail -n 40 "$log" >&2; fi
    printf 'run date=%s target=%s corpus=%s status=%d units=%s\n' "$(date -u +%F)" "$name" "$(corpus_hash "$name")" \
        "$status" "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)" >>"$record"
}

# Two at a time.
run_all() {
    local name options at_once=$((${#targets[@]} < 2 ? 1 : 2))
    for name in "${targets[@]}"; do
        # A fixed number of inputs is that of the tree's corpus alone; a long run goes on with what the last one found.
        if [[ -n $runs ]]; then
            rm -rf "$TREE/fixed/$name"
            mkdir -p "$TREE/fixed/$name"
            options=("-runs=$runs" -seed=1 "$TREE/fixed/$name" "$(tree_corpus "$name")")
        else
            options=("-max_total_time=$(((seconds * at_once + ${#targets[@]} - 1) / ${#targets[@]}))"
                "$TREE/found/$name" "$(tree_corpus "$name")")
        fi
        while (($(jobs -rp | wc -l) >= at_once)); do wait -n; done
        run_target "$name" "${options[@]}" &
    done
    wait
}

canary() {
    local status=0
    build_fuzzers fuzz_canary
    rm -rf "$TREE/found/canary"
    mkdir -p "$TREE/findings/canary" "$TREE/found/canary"
    "$TREE/bin/fuzz_canary" -max_len=1024 -max_total_time=60 -seed=1 -artifact_prefix="$TREE/findings/canary/" \
        "$TREE/found/canary" "$(tree_corpus blocks)" >"$TREE/canary.log" 2>&1 || status=$?
    if ((status != 0)) && grep -q 'AddressSanitizer: use-after-poison\|AddressSanitizer: SEGV' "$TREE/canary.log" &&
        grep -q 'walk_block\|name_query' "$TREE/canary.log"; then
        echo "canary: the overflow was found"
        exit 0
    fi
    tail -n 20 "$TREE/canary.log" >&2
    echo "canary: the overflow WENT UNNOTICED"
    exit 1
}

replay() {
    local name=$1 file=$2
    [[ -f $file ]] || die "no such input: $file"
    build_fuzzers "fuzz_$name"
    ASAN_OPTIONS=malloc_context_size=30 exec "$TREE/bin/fuzz_$name" -timeout=10 "$file"
}

minimise() {
    local name corpus smaller
    build_fuzzers fuzzers
    for name in "${TARGETS[@]}"; do
        corpus=$(tree_corpus "$name")
        smaller=$TREE/smaller/$name
        rm -rf "$smaller"
        mkdir -p "$smaller" "$TREE/found/$name"
        quietly "$TREE/bin/fuzz_$name" -set_cover_merge=1 -use_counters=0 -max_len=1024 "$smaller" "$corpus" "$TREE/found/$name"
        rm -f "$corpus"/*
        cp "$smaller"/* "$corpus"
        printf '%s: %d files\n' "$name" "$(find "$corpus" -type f | wc -l)"
    done
    exit 0
}

is_target() { [[ " ${TARGETS[*]} " == *" $1 "* ]]; }

seconds=
runs=
ledger=
chosen=()
while (($# > 0)); do
    case $1 in
        --canary) canary ;;
        --minimise) minimise ;;
        --replay)
            is_target "${2:-}" || usage 2 >&2
            [[ -n ${3:-} ]] || usage 2 >&2
            replay "$2" "$3"
            ;;
        --runs)
            [[ ${2:-} =~ ^[0-9]+$ ]] || usage 2 >&2
            runs=$2
            shift
            ;;
        --target)
            is_target "${2:-}" || usage 2 >&2
            chosen+=("$2")
            shift
            ;;
        --ledger) ledger=yes ;;
        -h | --help) usage 0 ;;
        *)
            [[ $1 =~ ^[0-9]+$ ]] || usage 2 >&2
            seconds=$1
            ;;
    esac
    shift
done
[[ -n $seconds || -n $runs ]] || usage 2 >&2
targets=("${TARGETS[@]}")
if ((${#chosen[@]} > 0)); then targets=("${chosen[@]}"); fi

build_fuzzers fuzzers fuzz_summary
record=$TREE/record
: >"$record"
run_all
if [[ -n $ledger ]]; then "$TREE/bin/fuzz_summary" --ledger "$record" >>proofs/fuzz/ledger.tsv; fi
status=0
verdict=$("$TREE/bin/fuzz_summary" "$record") || status=$?
(($(wc -l <"$record") == ${#targets[@]})) || die "a fuzzer left no line in the record"
printf 'record: %s\n%s\n' "$record" "$verdict"
exit "$status"
