#!/bin/bash
# A run control and a reader of slow channels: every value comes out by its name as it was sent.
# usage: run.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
bin=$1
records=$2
values=10

start master "$bin/example_master" --records "$records"
start reader "$bin/example_slow_reader" --records "$records"
"$bin/example_run_control" --records "$records" --values $values --period 20 >"$work/sent.log" || fail "no run"
finished reader

[[ $(grep -c '^environment: free memory [1-9]' "$work/sent.log") == "$values" ]] || fail "not $values values sent"
# At each event the reader prints all that it knows: an update event has the environment's values as well.
grep -E '^(environment|update: values sent)' "$work/reader.log" >"$work/read.log" || fail "nothing was read"
cmp "$work/sent.log" "$work/read.log" || fail "not every value as it was sent: $(diff "$work/sent.log" "$work/read.log")"
grep -qx 'begin of run: values sent 0.00' "$work/reader.log" || fail "no property at the begin"
grep -qx "end of run: values sent $values.00" "$work/reader.log" || fail "no property at the end"
[[ $(grep -c '^end of run: load' "$work/reader.log") == 1 ]] || fail "no channel at the end"
end_master
