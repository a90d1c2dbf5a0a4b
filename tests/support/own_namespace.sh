# shellcheck shell=bash
# Sourced by tests that are scripts: the script begins again in an IPC namespace of its own, which goes with its last
# process. Needs: $0 and "$@" of the test as it was called, and `fail`.

if [[ -z ${IN_OWN_IPC_NAMESPACE:-} ]]; then
    export IN_OWN_IPC_NAMESPACE=1
    unshare --ipc true 2>/dev/null && exec unshare --ipc "$0" "$@"
    unshare --user --map-root-user --ipc true 2>/dev/null && exec unshare --user --map-root-user --ipc "$0" "$@"
    echo "no IPC namespace can be had" >&2
    exit 125
fi

# nothing_is_left AFTER-WHAT
nothing_is_left() {
    [[ $(ipcs -m | grep -c '^0x') == 0 ]] || fail "$1: segments are left: $(ipcs -m)"
    [[ $(ipcs -s | grep -c '^0x') == 0 ]] || fail "$1: semaphore sets are left: $(ipcs -s)"
}
