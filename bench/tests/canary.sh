#!/bin/bash
# With the library's locks slowed down an event costs at least half as much again, the references' events do not, and the
# judge finds the goals missed.
# usage: canary.sh BM_BENCH BM_GOALS CANARY
set -euo pipefail

bench=$1 goals=$2 canary=$3
work=$(mktemp -d "$PWD/bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail()
{
    echo "FAILED: $*" >&2
    exit 1
}

cost() { awk -F '\t' -v subject="$2" '$3 == subject && $4 == "processor_us" { print $5 }' "$work/$1" | sort -g | head -n 1; }

readonly what=(--only 'one/1KiB/1cpu,pipelined/1KiB/1cpu' --rounds 3 --turns 1 --seconds 0.03)
"$bench" "${what[@]}" --record "$work/plain" || exit $?
LD_PRELOAD=$canary "$bench" "${what[@]}" --record "$work/slowed"
awk "BEGIN { exit !($(cost slowed library) > 1.5 * $(cost plain library)) }" || fail "the library is not slower"
awk "BEGIN { exit !($(cost slowed best) < 1.5 * $(cost plain best)) }" || fail "the reference is slower, too"
"$goals" --expect-missed 2,6 "$work/slowed" >"$work/text" || fail "goals did not fall: $(cat "$work/text")"
grep -q -x 'goal 2 fell, as it must' "$work/text" || fail "nothing is said of the goals: $(cat "$work/text")"
! "$goals" --expect-missed 14 "$work/slowed" >/dev/null || fail "what was not measured counts as fallen"
