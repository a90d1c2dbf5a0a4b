#!/bin/bash
# A run that is cut short leaves nothing of its partitions and processes. Told to end by a signal to all of its processes,
# as a terminal does it, it ends in order: whole events, every buffer back; also when a reader stood still for longer than
# the writers have buffers. When one of its processes is killed, it says so; and when not all of them can be started.
# usage: ending.sh DEMO INT | TERM | HUP | stall | starved | NUMBER-OF-THE-CHILD-TO-KILL
set -euo pipefail

if [[ -z ${IN_OWN_IPC_NAMESPACE:-} ]]; then
    export IN_OWN_IPC_NAMESPACE=1
    unshare --ipc true 2>/dev/null && exec unshare --ipc "$0" "$@"
    unshare --user --map-root-user --ipc true 2>/dev/null && exec unshare --user --map-root-user --ipc "$0" "$@"
    echo "no IPC namespace can be had" >&2
    exit 125
fi

work=$(mktemp -d "$PWD/demo.XXXXXX")
run=0
trap '[[ $run == 0 ]] || kill -KILL -- -$run 2>/dev/null || true; rm -rf "$work"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

nothing_is_left() {
    [[ $(ipcs -m | grep -c '^0x') == 0 ]] || fail "segments are left: $(ipcs -m)"
    [[ $(ipcs -s | grep -c '^0x') == 0 ]] || fail "semaphore sets are left: $(ipcs -s)"
}

# Semaphore 1 of a partition counts its free buffers.
a_writer_has_no_buffer() {
    local set
    for set in $(ipcs -s | awk '$1 ~ /^0x/ { print $2 }'); do
        if [[ $(ipcs -s -i "$set" | awk '$1 == 1 { print $2 }') == 0 ]]; then return; fi
    done
    return 1
}

if [[ $2 == starved ]]; then
    # Enough for the master and the first of the others.
    status=0
    (
        ulimit -n 10
        exec "$1" --seconds 1 --host-ipc
    ) >"$work/said" 2>&1 || status=$?
    cat "$work/said"
    [[ $status == 1 ]] || fail "status $status"
    grep -q 'demo: socketpair: Too many open files' "$work/said" || fail "all processes were started"
    nothing_is_left
    exit
fi

set -m # the run gets a process group of its own, which is what a terminal interrupts
mkfifo "$work/output"
"$1" --seconds 600 --host-ipc >"$work/output" 2>&1 &
run=$!
exec {output}<"$work/output"

line=""
while [[ $line != *" events "*" callback "* ]]; do
    IFS= read -r -t 20 line <&"$output" || fail "no event came"
done
[[ $(ipcs -m | grep -c '^0x') == 6 ]] || fail "not the six partitions of a run: $(ipcs -m)"

read -r -a children <"/proc/$run/task/$run/children" || [[ ${#children[@]} == 8 ]] # its line has no end
expected=130
case $2 in
    INT | TERM | HUP)
        kill "-$2" -- -$run
        ;;
    stall)
        kill -STOP "${children[1]}"
        for ((tries = 0; tries < 500; ++tries)); do
            if a_writer_has_no_buffer; then break; fi
            sleep 0.02
        done
        sleep 0.2 # within a tick it asks for one
        kill -CONT "${children[1]}"
        kill -INT -- -$run
        ;;
    *)
        expected=1
        kill -KILL "${children[$2]}"
        ;;
esac
cat <&"$output" >"$work/last"
cat "$work/last"
status=0
wait $run || status=$?

[[ $status == "$expected" ]] || fail "status $status"
[[ $expected == 130 ]] || grep -q "WRONG: .* ended by signal 9" "$work/last" || fail "the dead process is not named"
[[ $2 != stall ]] || grep -q "waited for a buffer [1-9]" "$work/last" || fail "no writer ran out of buffers"
! kill -0 -- -$run 2>/dev/null || fail "a process is left"
nothing_is_left
