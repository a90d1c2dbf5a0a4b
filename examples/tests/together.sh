#!/bin/bash
# Master, two writers and two readers: every event comes whole to the one reader, and the named block of it to the
# other.  usage: together.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
bin=$1
records=$2
events=20

start master "$bin/example_master" --records "$records"
start all "$bin/example_reader" --records "$records" --events $events
start one "$bin/example_reader" --records "$records" --events $events --block WEST
at=$(date +%s)
for name in WEST EAST; do
    "$bin/example_writer" --records "$records" --writers 2 --events $events --start "$at" --period 20 \
        --name $name >"$work/$name.out" &
    pid_of[$name]=$!
done
for name in WEST EAST one all; do finished $name; done

[[ $(grep -c ' WEST .* 24 bytes of data' "$work/one.log") == "$events" ]] || fail "not the named block of each event"
for name in WEST EAST; do
    [[ $(grep -c " $name .* 24 bytes of data" "$work/all.log") == "$events" ]] || fail "not every block of $name"
    [[ $(grep -c refused "$work/$name.out") == 0 ]] || fail "a block of $name was refused"
done
[[ $(sort -u "$work/all.log" | wc -l) == $((2 * events)) ]] || fail "not each block once"
end_master
