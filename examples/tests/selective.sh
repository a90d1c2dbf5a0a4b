#!/bin/bash
# Of two writers' events a reader gets those with its trigger bit, and of them the block that it named.
# usage: selective.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
bin=$1
records=$2

start master "$bin/example_master" --records "$records"
start marked "$bin/example_selective_reader" --records "$records" --blocks WEST --trigger 2 --events 5
at=$(date +%s)
for name in WEST EAST; do
    "$bin/example_writer" --records "$records" --writers 2 --events 20 --start "$at" --period 20 --marked 4 \
        --name $name >"$work/$name.out" &
    pid_of[$name]=$!
done
for name in WEST EAST marked; do finished $name; done

[[ $(grep -c '^WEST of event .*, trigger 0x3$' "$work/marked.log") == 5 ]] || fail "not every marked event"
[[ $(grep -c ' of event ' "$work/marked.log") == 5 ]] || fail "more than the named block, or than the marked events"
[[ $(awk '/ of event / { sub(",", ""); print $4 % 4 }' "$work/marked.log" | sort -u) == 0 ]] || fail "other events"
end_master
