#!/usr/bin/env bash
# Runs the reader and the writer of a page against each other, in an IPC namespace of their own: once to their end,
# once interrupted as a terminal does it, and the reader once where nobody reads its output. None leaves anything behind.
#
# usage: readme_programs.sh READER WRITER
set -euo pipefail

if [[ $1 != --inside ]]; then
    namespace=(unshare --ipc)
    "${namespace[@]}" true 2>/dev/null || namespace+=(--map-root-user)
    exec timeout 60 "${namespace[@]}" "$0" --inside "$@"
fi
reader=$2
writer=$3
pipe=$(mktemp -u)

start_reader() {
    coproc READING { exec "$reader"; }
    reader_pid=$READING_PID
    exec {output}<&"${READING[0]}"
    trap 'kill "$reader_pid" 2>/dev/null || true' EXIT
    # Dated lines of the library stand between the program's own.
    while IFS= read -r line <&"$output" && [[ $line != ready ]]; do :; done
}

nothing_is_left() {
    trap - EXIT
    if ! ipcs -m | grep -q '^0x' && ! ipcs -s | grep -q '^0x'; then return; fi
    echo "left behind:" >&2
    ipcs -m -s >&2
    exit 1
}

start_reader
"$writer"
seen=$(grep '^ADC: ' <&"$output")
wait "$reader_pid"
expected=$(for pulse in {1..10}; do echo "ADC: pulse $pulse"; done)
diff <(echo "$expected") <(echo "$seen")
nothing_is_left

set -m # they begin with the signals as a terminal gives them, and not with SIGINT ignored
start_reader
"$writer" &
writer_pid=$!
# An event has come when both have all three partitions attached.
until [[ $(ipcs -m | awk '/^0x/ && $6 == 2' | wc -l) == 3 ]]; do sleep 0.01; done
kill -INT "$writer_pid"
kill -INT "$reader_pid"
wait "$reader_pid"
nothing_is_left

mkfifo "$pipe" # a reader that goes before the first line is written, whoever is quicker
exec {both_ends}<>"$pipe"
exec {only_end}>"$pipe"
exec {both_ends}>&-
rm "$pipe"
"$reader" >&"$only_end" # "ready" finds nobody: that is a signal to end like any other
nothing_is_left
