#!/bin/bash
# The programs are ended by signals in the middle of their work, in several orders: nothing is left of their partitions,
# also not of those that a killed process used, once the master has ended in order.
# usage: ending.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
set -m # the programs begin with the signals as a terminal gives them, and not with SIGINT ignored
bin=$1
records=$2

# launch NAME COMMAND...: one that does not say when it is ready.
launch() {
    local name=$1
    shift
    "$@" >"$work/$name.log" &
    pid_of[$name]=$!
}

# eventually COMMAND...: at the latest after ten seconds it succeeds.
eventually() {
    local tries
    for ((tries = 0; tries < 500; ++tries)); do
        if "$@"; then return; fi
        sleep 0.02
    done
    fail "not in ten seconds: $*"
}

# ended STATUS NAME...: they end, all with this status.
ended() {
    local expected=$1 name status
    shift
    for name in "$@"; do
        eventually stopped "${pid_of[$name]}"
        status=0
        wait "${pid_of[$name]}" || status=$?
        [[ $status == "$expected" ]] || fail "$name: status $status, not $expected"
        unset "pid_of[$name]"
        rm -f "${work:?}/$name"
    done
}
stopped() { ! grep -qx "$1" <<<"$(jobs -rp)"; }

at_work() {
    start master "$bin/example_master" --records "$records"
    start reader "$bin/example_reader" --records "$records" --events 1000000
    start selective "$bin/example_selective_reader" --records "$records" --trigger 1 --events 1000000
    start slow_reader "$bin/example_slow_reader" --records "$records"
    start images "$bin/example_foreign_blocks" --records "$records" --role reader --events 1000000
    launch writer "$bin/example_writer" --records "$records" --events 1000000 --period 10
    launch run_control "$bin/example_run_control" --records "$records" --values 1000000 --period 10
    launch camera "$bin/example_foreign_blocks" --records "$records" --role writer --events 1000000
    eventually grep -q LOAD "$work/reader.log"
    eventually grep -q LOAD "$work/selective.log"
    eventually grep -q CAMERA "$work/images.log"
    eventually grep -q '^environment' "$work/slow_reader.log"
}

giving_back_early() {
    start master "$bin/example_master" --records "$records"
    start early "$bin/example_early_return" --records "$records" --events 1000000 --work 1
    launch writer "$bin/example_writer" --records "$records" --events 1000000 --period 10
    eventually grep -q sum "$work/early.log"
}

streaming() {
    start master "$bin/example_master" --records "$records"
    start receive "$bin/file_receive" --records "$records" --file "$work/copy"
    launch send "$bin/file_send" --records "$records" --file "$work/endless" --piece 1000
    eventually test -s "$work/copy"
}

# tell SIGNAL NAME...
tell() {
    local signal=$1 name
    shift
    for name in "$@"; do kill "-$signal" "${pid_of[$name]}"; done
}

nothing_is_left() {
    [[ $(ipcs -m | grep -c '^0x') == 0 ]] || fail "$1: segments are left: $(ipcs -m)"
    [[ $(ipcs -s | grep -c '^0x') == 0 ]] || fail "$1: semaphore sets are left: $(ipcs -s)"
}

clients=(writer run_control camera reader selective slow_reader images)
for signal in INT TERM HUP; do
    at_work
    [[ $(ipcs -m | grep -c '^0x') == 5 ]] || fail "not the five partitions: $(ipcs -m)"
    tell $signal "${clients[@]}" master
    ended $((128 + $(kill -l $signal))) "${clients[@]}"
    ended 0 master
    nothing_is_left "$signal, all together"
done

at_work
tell TERM master "${clients[@]}"
ended 143 "${clients[@]}"
ended 0 master
nothing_is_left "the master first"

at_work
for name in reader selective slow_reader images writer run_control camera; do
    tell TERM $name
    ended 143 $name
done
[[ $(ipcs -m | grep -c '^0x') == 2 ]] || fail "not the partitions of the master alone: $(ipcs -m)"
tell TERM master
ended 0 master
nothing_is_left "one after the other"

# Told twice the master does not wait for anybody: those that write notice, those that read have to be told.
# Whoever meets the missing partitions forgets its own on purpose, which is no leak.
ASAN_OPTIONS=${ASAN_OPTIONS:-}:detect_leaks=0 at_work
tell TERM master
sleep 0.1
tell TERM master
ended 0 master
ended 1 writer run_control camera
tell TERM reader selective slow_reader images
ended 143 reader selective slow_reader images
nothing_is_left "the master alone"

at_work
tell KILL writer slow_reader images
ended 137 writer slow_reader images
tell TERM run_control camera reader selective
ended 143 run_control camera reader selective
[[ $(ipcs -m | grep -c '^0x') -gt 2 ]] || fail "killed processes left no partition: this shows nothing"
tell TERM master
ended 0 master
nothing_is_left "some killed"

for victim in early writer; do
    giving_back_early
    tell KILL $victim
    ended 137 $victim
    tell TERM "${!pid_of[@]}"
    for name in "${!pid_of[@]}"; do
        [[ $name == master ]] || ended 143 "$name"
    done
    ended 0 master
    nothing_is_left "$victim killed at an early return"
done

truncate -s 1G "$work/endless"
for signal in INT TERM; do
    streaming
    tell $signal receive
    ended $((128 + $(kill -l $signal))) receive
    tell $signal send
    ended $((128 + $(kill -l $signal))) send
    tell $signal master
    ended 0 master
    nothing_is_left "$signal, a stream"
    rm "$work/copy"
done

# Without its writers the file never becomes whole: the receiver says so and ends by itself.
streaming
tell KILL send
ended 137 send
ended 1 receive
tell TERM master
ended 0 master
nothing_is_left "the sender killed"
