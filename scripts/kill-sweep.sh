#!/usr/bin/env bash
# Kills a process at every call into the kernel that it makes, in every role, and counts what comes back. The raw record
# has one line per point; the table and the last line are derived from it. See docs/kill-sweep.md.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

usage() {
    cat <<'TEXT'
usage: scripts/kill-sweep.sh [--sample | --instructions [REGION]] [--role NAME] [--canary] [--with-command] [--resume]
                             [--record FILE]
       scripts/kill-sweep.sh --replay POINT [--canary] [--with-command]
  --sample   some points of every role, the same each time: a minute
  --instructions  at every instruction at which a lock is held, in all regions or one; goes on with its record
  --role     one role alone
  --canary   on a library without the second look at a returned buffer, which must be reported as not back
  --with-command  bm check and bm repair in the place of the library's checker; with --canary a bm that does not see what
             the dead have taken
  --resume   leave out the points that the record holds already
  --record   file of the raw record (build/release/kill-sweep.rec)
  --replay   one point, for instance writer:2010:time:2:before:17, with all that its processes print
exit status: 0 all came back and every claim held (with --canary: the missing guard was reported)
TEXT
    exit "$1"
}

program=kill_sweep
name=kill-sweep
record=
resume=
replay=
canary=
command=
options=()
while (($# > 0)); do
    case $1 in
        --sample) options+=(--sample) ;;
        --canary) canary=yes ;;
        --with-command) command=bm ;;
        --resume) resume=yes ;;
        --instructions)
            name=kill-sweep-instructions
            resume=yes
            options+=(--instructions)
            if [[ ${2:-} =~ ^[a-z] ]]; then
                options+=(--role "$2")
                shift
            fi
            ;;
        --role | --record | --replay)
            [[ -n ${2:-} ]] || usage 2 >&2
            case $1 in
                --role) options+=(--role "$2") ;;
                --record) record=$2 ;;
                --replay) replay=$2 ;;
            esac
            shift
            ;;
        -h | --help) usage 0 ;;
        *) usage 2 >&2 ;;
    esac
    shift
done

guard="the missing guard"
if [[ -n $canary ]]; then
    name=kill-sweep-canary
    if [[ -n $command ]]; then
        command=bm_blind
        guard="the blind command"
        if [[ ${options[*]} != *--role* ]]; then options+=(--role writer --sample); fi
    else
        program=kill_sweep_canary
        # The guard that it lacks matters where two processes return one buffer.
        if [[ ${options[*]} != *--role* ]]; then options+=(--role second_return); fi
    fi
fi

build_program build "$program"
if [[ -n $command ]]; then
    build_program build "$command"
    options+=(--with-command "$PWD/build/release/bin/$command")
fi
[[ -z $replay ]] || exec "build/release/bin/$program" "${options[@]}" --replay "$replay"
build_program build kill_sweep_summary

record=${record:-build/release/$name.rec}
# Instructions of another build are other points.
if [[ -z $resume || build/release/lib/libZRK4bm.so -nt $record ]]; then rm -f "$record" "$record.stories"; fi
"build/release/bin/$program" "${options[@]}" --record "$record" || die "the run broke off"
status=0
verdict=$(build/release/bin/kill_sweep_summary "$record") || status=$?
if [[ -n $canary ]]; then judge_canary "$guard"; fi
printf 'record: %s\n%s\n' "$record" "$verdict"
exit "$status"
