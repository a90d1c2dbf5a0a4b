#!/bin/bash
# A run shows slow channels by name while it runs, and counts the run control's events and channels in the end; one that
# is interrupted before its first event has a begin and an end all the same.
# usage: slow_channels.sh DEMO
set -euo pipefail

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

counted() {
    grep -qE "run control   begin 1/1   end 1/1   environment $1   update $2 " <<<"$output" || fail "counts: $output"
}

output=$("$1" --seconds 3) || fail "status $?: $output"
counted 3/3 2/2
grep -qE 'last block to callback.*  load 1 min [0-9.]+  tasks [1-9].*  uptime [1-9]' <<<"$output" ||
    fail "no slow channel is shown: $output"
channels=$(sed -nE 's/.*slow channels in the dictionary ([1-9][0-9]*)   read by name \1   .*/\1/p' <<<"$output")
((channels >= 9)) || fail "not every channel was read by its name: $output"

# Its first line comes when it is set up to be told.
exec {run}< <(exec "$1" --seconds 600 2>&1)
pid=$!
IFS= read -r -t 20 output <&"$run" || fail "no output"
kill -TERM $pid
output=$(cat <&"$run")
status=0
wait $pid || status=$?
[[ $status == 130 ]] || fail "not interrupted: status $status: $output"
grep -qE 'run control   begin 1/1   end 1/1 ' <<<"$output" || fail "neither begin nor end: $output"
grep -q "all accounted for" <<<"$output" || fail "interrupted at its start: $output"
