#!/usr/bin/env bash
# On a small host of a master, a writer and a reader one system call of one of them fails: every call that it makes, with
# every error that the manual knows for it; then datagrams that get lost, cut or lengthened. No process may crash or hang,
# the others go on, nothing arrives twice, nothing is lost but what a program that gives up has in its hands.
#
# The record, a line for each point, stays in build/call_faults; the last line printed is made of it.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

usage() {
    cat <<'TEXT'
usage: scripts/call-faults.sh [--sample | --canary | --replay POINT]
  --sample  some of the points, well under a minute
  --canary  the process in which a call fails also keeps a buffer, which must be reported
  --replay  one point, as the record names it: writer:semop:17:22, reader:datagram:drop:20:7; what its processes
            have said stays in build/call_faults/point.1/log
exit status: 0 all as it has to be (with --canary: the fault was reported)
TEXT
    exit "$1"
}

arguments=()
canary=no
case ${1:-} in
    "") ;;
    --sample) arguments=(--sample 150) ;;
    --canary)
        canary=yes
        arguments=(--canary --point writer:sendto:2:105)
        ;;
    --replay)
        [[ -n ${2:-} ]] || usage 2 >&2
        arguments=(--point "$2")
        ;;
    -h | --help) usage 0 ;;
    *) usage 2 >&2 ;;
esac

build_program build call_faults
build_program build call_faults_summary
folder=build/call_faults
rm -rf "$folder"
build/release/bin/call_faults --folder "$folder" --programs build/release/bin "${arguments[@]}" || die "the sweep broke off"
status=0
verdict=$(build/release/bin/call_faults_summary "$folder/record") || status=$?
if [[ $canary == yes ]]; then judge_canary "the lost buffer"; fi
printf 'record: %s/record\n%s\n' "$folder" "$verdict"
exit "$status"
