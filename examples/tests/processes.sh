# shellcheck shell=bash
# Sourced by the tests: an IPC namespace of their own, a directory in memory for their files, and processes that say
# "ready".
# Needs: $0 and "$@" of the test as it was called.

if [[ -z ${IN_OWN_NAMESPACES:-} ]]; then
    export IN_OWN_NAMESPACES=1
    unshare --ipc --mount true 2>/dev/null && exec unshare --ipc --mount "$0" "$@"
    unshare --user --map-root-user --ipc --mount true 2>/dev/null &&
        exec unshare --user --map-root-user --ipc --mount "$0" "$@"
    echo "no namespaces can be had" >&2
    exit 125
fi

# Not on the disk: a reader that a busy disk holds up for seconds loses its events to the monitor.
work=$(mktemp -d "$PWD/examples.XXXXXX")
mount -t tmpfs examples "$work"
declare -A pid_of=() log_of=()

clean_up() {
    local pid
    for pid in "${pid_of[@]}"; do kill -KILL "$pid" 2>/dev/null || true; done
    umount --lazy "$work"
    rmdir "$work"
}
trap clean_up EXIT

fail() {
    echo "FAILED: $*" >&2
    tail -n 20 "$work"/*.log >&2 || true
    exit 1
}

# start NAME COMMAND...: returns when the process has said "ready"; what it says later goes to NAME.log.
start() {
    local name=$1 line="" from
    shift
    mkfifo "$work/$name"
    "$@" >"$work/$name" &
    pid_of[$name]=$!
    exec {from}<"$work/$name"
    while [[ $line != ready ]]; do
        IFS= read -r -t 20 line <&"$from" || fail "$name did not get ready"
    done
    cat <&"$from" >"$work/$name.log" &
    log_of[$name]=$!
    exec {from}<&-
}

# finished NAME: waits for its end, which must be a good one, and for the last of what it said.
finished() {
    wait "${pid_of[$1]}" || fail "$1 ended with status $?"
    [[ -z ${log_of[$1]:-} ]] || wait "${log_of[$1]}"
    unset "pid_of[$1]" "log_of[$1]"
}

# end_master: tells it to end; nothing may be left of the partitions.
end_master() {
    kill -INT "${pid_of[master]}"
    finished master
    [[ $(ipcs -m | grep -c '^0x') == 0 ]] || fail "segments are left: $(ipcs -m)"
    [[ $(ipcs -s | grep -c '^0x') == 0 ]] || fail "semaphore sets are left: $(ipcs -s)"
}
