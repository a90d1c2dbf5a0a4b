#!/usr/bin/env bash
# Four writers, six readers and a master; every 20 to 500 ms one of them is killed with SIGKILL and started again, or
# stopped for a while. Nothing may arrive wrong or twice, nothing may stand still, and when all is over no more buffers
# may be missing than processes were killed.
#
# The record, a line for everything that was done or found, stays in build/soak; the last line printed is made of it.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

usage() {
    cat <<'TEXT'
usage: scripts/soak.sh [SECONDS] [--seed N] [--records 2010|2024] [--mode time|evid]
       scripts/soak.sh --canary [corrupt|leak|deaf]
       scripts/soak.sh --replay RECORD[:KILL]
  SECONDS   how long processes are killed (1800)
  --seed    who is killed and when (the time of day)
  --canary  plants a fault in one process, which must be reported: a byte changed behind the sum (corrupt), buffers that
            a living process keeps (leak), a reader that does nothing with its events (deaf)
  --replay  the run of that record again; with KILL it ends behind the kill of that number
exit status: 0 all as it has to be (with --canary: the fault was reported)
TEXT
    exit "$1"
}

seconds=1800
arguments=(--seed "$(date +%s)")
canary=""

# A field of a record's first line.
field() { sed -n "1s/.* $2=\([^ ]*\).*/\1/p" "$1"; }

replay() {
    local file=${1%:*} kill=""
    [[ $1 == *:* ]] && kill=${1##*:}
    [[ -f $file ]] || die "no such record: $file"
    seconds=$(field "$file" seconds)
    arguments+=(--seed "$(field "$file" seed)" --records "$(field "$file" records)" --mode "$(field "$file" mode)")
    if [[ -n $kill ]]; then arguments+=(--last-kill "$kill"); fi
}

while (($# > 0)); do
    case $1 in
        --seed | --records | --mode)
            [[ -n ${2:-} ]] || usage 2 >&2
            arguments+=("$1" "$2")
            shift
            ;;
        --canary)
            canary=corrupt
            seconds=10
            if [[ ${2:-} =~ ^[a-z]+$ ]]; then
                canary=$2
                shift
            fi
            arguments+=(--canary "$canary")
            ;;
        --replay)
            [[ -n ${2:-} ]] || usage 2 >&2
            replay "$2"
            shift
            ;;
        -h | --help) usage 0 ;;
        *)
            [[ $1 =~ ^[0-9]+$ ]] || usage 2 >&2
            seconds=$1
            ;;
    esac
    shift
done

build_program build soak
build_program build soak_summary
folder=build/soak
mkdir -p "$folder"
build/release/bin/soak --folder "$folder" --seconds "$seconds" "${arguments[@]}" || die "the run broke off"
status=0
verdict=$(build/release/bin/soak_summary "$folder/record") || status=$?
if [[ -n $canary ]]; then judge_canary "$canary"; fi
printf 'record: %s/record, seed %s\n%s\n' "$folder" "$(field "$folder/record" seed)" "$verdict"
exit "$status"
