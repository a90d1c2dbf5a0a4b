#!/usr/bin/env bash
# Runs the reader and the writer of README.md against each other, in an IPC namespace of their own.
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

coproc READING { exec "$reader"; }
reader_pid=$READING_PID
exec {output}<&"${READING[0]}"
trap 'kill "$reader_pid" 2>/dev/null || true' EXIT

# Dated lines of the library stand between the program's own.
while IFS= read -r line <&"$output" && [[ $line != ready ]]; do :; done
"$writer"
seen=$(grep '^ADC: ' <&"$output")
wait "$reader_pid"
trap - EXIT

expected=$(for pulse in {1..10}; do echo "ADC: pulse $pulse"; done)
diff <(echo "$expected") <(echo "$seen")
if ipcs -m | grep -q '^0x' || ipcs -s | grep -q '^0x'; then
    echo "left behind:" >&2
    ipcs -m -s >&2
    exit 1
fi
