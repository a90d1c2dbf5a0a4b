#!/bin/bash
# A short run ends well, every figure of every scenario is there and above 0, and the judge reads them.
# usage: short_run.sh BM_BENCH BM_GOALS
set -euo pipefail

bench=$1 goals=$2
work=$(mktemp -d "$PWD/bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail()
{
    echo "FAILED: $*" >&2
    exit 1
}

touch "$work/began"
"$bench" --short --record "$work/record" 2>"$work/log" || {
    status=$?
    cat "$work/log" >&2
    exit "$status"
}
left=$(find /tmp -maxdepth 1 -newer "$work/began" '(' -name 'bm_bench-*' -o -name '*roudi*' ')')
[[ -z $left ]] || fail "a peer left behind: $left"
[[ $(grep -c '^machine' "$work/record") == 1 ]] || fail "no machine in the record"
bad=$(awk -F '\t' '$1 != "machine" && (NF != 5 || $1 != 1 || !($5 > 0))' "$work/record")
[[ -z $bad ]] || fail "lines without a figure: $bad"

# Scenarios of one processor, and with a second one those of two, each with library and references.
processors=$(awk -F '\t' '$1 == "machine" { sub(/.*used:/, "", $2); sub(/;.*/, "", $2); print split($2, used, " ") }' "$work/record")
for scenario in one/1KiB pipelined/{1KiB,64KiB,1MiB,8MiB}; do
    for ((n = 1; n <= processors; ++n)); do
        for subject in library strict best; do
            [[ $(cut -f 2,3 "$work/record" | grep -c -x -- "$scenario/${n}cpu"$'\t'"$subject") == 2 ]] ||
                fail "not both figures of $subject in $scenario, $n processors"
        done
    done
done
# A peer that was there when the benchmark was built has its rows, and one that was not is named once.
peers=(unix_stream)
for other in ZeroMQ:zeromq_pushpull ZeroMQ:zeromq_pubsub Boost:boost_queue iceoryx:iceoryx_waitset iceoryx:iceoryx_polling; do
    grep -q "not here: ${other%%:*}" "$work/log" || peers+=("${other##*:}")
done
if ((processors > 1)); then
    for subject in "${peers[@]}"; do
        for scenario in pipelined/{1KiB,64KiB,1MiB,8MiB}/2cpu building/8x64KiB/{1reader,3readers}; do
            [[ $(cut -f 2,3 "$work/record" | grep -c -x -- "$scenario"$'\t'"$subject") == 2 ]] ||
                fail "not both figures of $subject in $scenario"
        done
    done
fi
for kind in writers readers blocks names clients slots; do
    (($(grep -c -- "growth/$kind/" "$work/record") >= 10)) || fail "no growth in $kind"
done

"$goals" --json "$work/json" "$work/record" >"$work/text" || fail "the record cannot be judged"
tail -n 1 "$work/text" | grep -q -x 'goals met: [0-9]* of 14' || fail "no verdict: $(cat "$work/text")"
grep -q '"goals_met": [0-9]' "$work/json" || fail "no verdict in the figures"
