#!/bin/bash
# Counts with strace the calls into the kernel that an event costs: those of the exchange, which are semaphore operations,
# looks whether a process lives, datagrams sent and received. Tries that find a lock busy are not among them: what then
# waits, or tries again with success, is. What is not of an event goes away in the difference of two runs.
# usage: count_calls.sh BM_BENCH FEW MANY SUBJECT SCENARIO...
#   prints for each scenario a line of a record: 0 SCENARIO SUBJECT calls NUMBER
set -euo pipefail

bench=$1 few=$2 many=$3 subject=$4
shift 4
if ! strace -o /dev/null true 2>/dev/null; then
    echo "no strace, or no process may be traced here" >&2
    exit 125
fi
summary=$(mktemp)
trap 'rm -f "$summary"' EXIT

# Successful calls of a run of so many events. Fails where there is no such scenario.
calls_of()
{
    strace -f -c -o "$summary" -e trace=semop,semtimedop,kill,sendto,recvfrom \
        "$bench" --trace "$subject" --scenario "$1" --events "$2" >/dev/null || return
    awk '$1 ~ /^[0-9.]+$/ && $NF != "total" { calls += $4 - (NF == 6 ? $5 : 0) } END { print calls }' "$summary"
}

for scenario in "$@"; do
    calls_of_few=$(calls_of "$scenario" "$few")
    calls_of_many=$(calls_of "$scenario" "$many")
    awk -v scenario="$scenario" -v subject="$subject" -v calls=$((calls_of_many - calls_of_few)) -v events=$((many - few)) \
        'BEGIN { printf "0\t%s\t%s\tcalls\t%s\n", scenario, subject, calls / events }'
done
