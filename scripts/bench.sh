#!/usr/bin/env bash
# The benchmark: the library beside bare programs that make the same system calls, and beside what users would take
# instead; what was promised, and whether it is kept. The rounds go into a raw record, and the verdict is made of that.
#
# usage: scripts/bench.sh [--rounds N] [--record FILE] [--json FILE] [--short] [ARGUMENT OF bm_bench...]
#        scripts/bench.sh --judge RECORD...
#        scripts/bench.sh --curves RECORD FOLDER  the record as drawings
#        scripts/bench.sh --canary                slows the library's locks down: goals must fall
#        scripts/bench.sh --recovery [ROUNDS]     what a death costs, and the monitor
#        scripts/bench.sh --channels [ARGUMENT...]  what a look-up of a channel costs, beside a plain loop
#        scripts/bench.sh --operator [RUNS]       how long bm looks at a host whose thousands of slots are all taken
set -euo pipefail
. "$(dirname "$0")/lib.sh"

readonly bin=build/release/bin

recovery() {
    build_program bench bm_recovery
    exec "$bin/bm_recovery" "$@"
}

# The table and the last line are made of the record and of nothing else.
channels() {
    local record=build/release/channels.record judge=()
    [[ " $* " == *" --canary "* ]] && judge=(--canary)
    build_program bench bm_channels
    build_program bench bm_channels_verdict
    "$bin/bm_channels" "$record" "$@"
    printf 'record: %s\n' "$record"
    exec "$bin/bm_channels_verdict" "${judge[@]}" "$record"
}

# The host is made by hand, with what the tests have for that.
operator() {
    scripts/install-deps.sh test
    quietly cmake --preset release
    build_program build bm_large_host_times
    exec "$bin/bm_large_host_times" "$@"
}

judge() {
    build_program bench bm_goals
    exec "$bin/bm_goals" "$@"
}

curves() { exec bench/curves.sh "$@"; }

# Of what was promised beside the references nothing may be left.
canary() {
    local record=build/release/canary.record
    build_program bench bm_bench
    build_program bench bm_goals
    build_program bench bench_canary
    rm -f "$record"
    LD_PRELOAD=$PWD/build/release/lib/libbench_canary.so "$bin/bm_bench" --only 'one/1KiB,pipelined/1KiB' \
        --record "$record" "$@"
    exec "$bin/bm_goals" --expect-missed 2,3,5,6 "$record"
}

case ${1:-} in
    --recovery | --channels | --operator | --judge | --curves | --canary)
        what=${1#--}
        shift
        "$what" "$@"
        ;;
esac

record=build/release/bench.record
verdict=()
arguments=()
whole=yes
rounds=(5 9) # of everything, and of event building
sizes=(1 128 256 384 512)
while (($# > 0)); do
    case $1 in
        --rounds) rounds=("$2" "$2") && shift ;;
        --record) record=$2 && shift ;;
        --json) verdict=(--json "$2") && shift ;;
        --short) arguments+=(--seconds 0.02 --turns 1) rounds=(1 1) sizes=(1 128) ;;
        --only) arguments+=("$1" "$2") whole= && shift ;;
        *) arguments+=("$1") ;;
    esac
    shift
done

build_program bench bm_bench
build_program bench bm_goals
rm -f "$record"

# What is counted is the same in every round.
count_calls() {
    local growth=() kind n
    for kind in writers readers blocks; do
        for n in "${sizes[@]}"; do growth+=("growth/$kind/$n"); done
    done
    echo "counting calls ..." >&2
    # Now and then the monitor's calls fall into a run: of many events they are hardly seen.
    bench/count_calls.sh "$bin/bm_bench" 10 110 library shape/{1/1/1,2/2/2,8/1/8,8/3/8} >>"$record"
    bench/count_calls.sh "$bin/bm_bench" 5 10 library "${growth[@]}" >>"$record"
}

if [[ -n $whole ]]; then count_calls; fi
"$bin/bm_bench" --rounds "${rounds[0]}" --record "$record" "${arguments[@]}"
if [[ -n $whole ]] && ((rounds[1] > rounds[0])); then
    "$bin/bm_bench" --only building --first-round $((rounds[0] + 1)) --rounds $((rounds[1] - rounds[0])) \
        --record "$record" "${arguments[@]}"
fi
printf 'record: %s\n' "$record"
exec "$bin/bm_goals" "${verdict[@]}" "$record"
