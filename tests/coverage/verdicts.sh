#!/usr/bin/env bash
# What summary.awk makes of a coverage report: on reports made by hand.
set -euo pipefail
cd "$(dirname "$0")"

failed=0
readers=$(mktemp)
trap 'rm -f "$readers"' EXIT
printf '# a word\na.cpp\nb.h\n' >"$readers"

# Last two lines and the exit status for rows of a report.
expect() {
    local what=$1 wanted=$2 got status=0
    shift 2
    got=$(printf '%s\n' 'filename,line_total,line_covered,line_percent,branch_total,branch_covered,branch_percent' "$@" |
        awk -f summary.awk "$readers" -) || status=$?
    got=$(printf '%s' "$got" | grep -v '^library' | tail -n 2 | tr -s ' ')$'\n'"status $status"
    [[ $got == "$wanted" ]] && return
    printf '%s:\n wanted: %s\n got:    %s\n' "$what" "$wanted" "$got"
    failed=1
}

readers_row() { printf 'readers lines %d of %d %s %% branches %d of %d %s %%\ngoals met: %d of 2\nstatus %d' "$@"; }

expect "the readers alone decide" "$(readers_row 100 100 100.00 40 40 100.00 2 0)" \
    a.cpp,60,60,1,20,20,1 b.h,40,40,1,20,20,1 other.cpp,1000,0,0,500,0,0
expect "both goals are reached exactly" "$(readers_row 99 100 99.00 19 20 95.00 2 0)" \
    a.cpp,60,60,1,10,10,1 b.h,40,39,0.9,10,9,0.9
expect "a line too few" "$(readers_row 98 100 98.00 20 20 100.00 1 1)" a.cpp,60,59,1,10,10,1 b.h,40,39,1,10,10,1
expect "a branch too few" "$(readers_row 100 100 100.00 18 20 90.00 1 1)" a.cpp,60,60,1,10,9,1 b.h,40,40,1,10,9,1
expect "a file that is missing" "$(readers_row 60 60 100.00 10 10 100.00 2 1)" a.cpp,60,60,1,10,10,1
expect "no report" "$(readers_row 0 0 100.00 0 0 100.00 0 1)"
exit "$failed"
