#!/usr/bin/env bash
# The benchmark: events per second and latency, beside a bare program that makes the same system calls.
# Arguments are the benchmark's own. With --recovery [ROUNDS]: what a death costs, and the monitor. With --channels: what
# a look-up of a channel costs, beside a plain loop.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

# The table and the last line are made of the record and of nothing else.
channels() {
    local record=build/release/channels.record judge=()
    [[ " $* " == *" --canary "* ]] && judge=(--canary)
    build_program bench bm_channels
    build_program bench bm_channels_verdict
    build/release/bin/bm_channels "$record" "$@"
    printf 'record: %s\n' "$record"
    exec build/release/bin/bm_channels_verdict "${judge[@]}" "$record"
}

program=bm_bench
case ${1:-} in
    --recovery)
        program=bm_recovery
        shift
        ;;
    --channels)
        shift
        channels "$@"
        ;;
esac
build_program bench "$program"
exec "build/release/bin/$program" "$@"
