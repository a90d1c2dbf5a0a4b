#!/usr/bin/env bash
# What outcome.awk makes of a verifier's report, and summary.awk of a record: on reports and records made by hand.
set -euo pipefail
cd "$(dirname "$0")/.."

failed=0
expect() {
    local what=$1 wanted=$2 got=$3
    [[ $got == "$wanted" ]] && return
    printf '%s:\n wanted: %s\n got:    %s\n' "$what" "$wanted" "$got"
    failed=1
}

# ---- the outcome of one search

complete='Full statespace search for:
State-vector 76 byte, depth reached 163, errors: 0
    28268 states, stored'
outcome() { printf '%s\n' "$@" | awk -f outcome.awk; }

expect "complete search without an error" $'no loss\t28268\t163' "$(outcome "$complete")"
expect "millions of states" $'no loss\t34000000\t506' \
    "$(outcome "${complete/28268/34000000}" | sed 's/163/506/')"
violated=${complete/errors: 0/errors: 1}
expect "violation is named by its replay" $'loss: buffer lost\t28268\t163' \
    "$(outcome 'pan:1: assertion violated 0 (at depth 12)' 'Warning: Search not completed' "$violated" \
        '          loss: buffer lost' 'loss: a later one')"
expect "place that is reached" $'reached: slot used again\t28268\t163' \
    "$(outcome 'pan:1: assertion violated 0 (at depth 12)' "$violated" 'reached: slot used again')"
expect "violation without a word" $'a loss without a name\t28268\t163' \
    "$(outcome 'pan:1: assertion violated 0 (at depth 12)' "$violated")"
expect "standstill, whatever the replay says" $'processes wait for each other\t28268\t163' \
    "$(outcome 'pan:1: invalid end state (at depth 26)' "$violated" 'loss: buffer lost')"
expect "another error" $'an error of another kind\t28268\t163' "$(outcome "$violated")"
expect "search cut by its depth" $'not finished\t28268\t163' "$(outcome 'error: max search depth too small' "$complete")"
expect "search cut by its memory" $'not finished\t28268\t163' "$(outcome 'pan: reached -DMEMLIM bound' "$complete")"
expect "search that broke off" $'not finished\t28268\t163' "$(outcome 'Warning: Search not completed' "$complete")"
expect "search of a part" $'not exhaustive\t28268\t163' \
    "$(outcome "${complete/Full statespace/Bit statespace}")"
expect "report without the kind of search" $'not exhaustive\t28268\t163' "$(outcome "${complete#*:}")"
expect "search of nothing" $'nothing searched\t0\t163' "$(outcome "${complete/28268/0}")"
expect "no report: not built, or out of time" $'no report\t0\t0' "$(outcome '')"

# ---- the verdict on a record

row() { printf '%s\tevent\t-DX=1\t%s\t%s\t%s\t5\t%s\n' "$1" "$2" "$3" "${4:-10}" "${5:-2}"; }
summary() { awk -f summary.awk && status=0 || status=$?; }
verdict() {
    local status
    summary
    printf 'status %d\n' "$status"
}

expect "all as expected" $'states: 30, seconds of search: 5\nmodels: 2, as expected: 2\nstatus 0' \
    "$({ echo '# a heading'; row a 'no loss' 'no loss'; row b 'loss: x' 'loss: x' 20 3; } | verdict)"
expect "loss where none is expected" \
    $'a: expected "no loss", found "loss: x"\nstates: 20, seconds of search: 4\nmodels: 2, as expected: 1\nstatus 1' \
    "$({ row a 'no loss' 'loss: x'; row b 'loss: x' 'loss: x'; } | verdict)"
expect "no loss where one is expected" \
    $'a: expected "loss: x", found "no loss"\nstates: 10, seconds of search: 2\nmodels: 1, as expected: 0\nstatus 1' \
    "$(row a 'loss: x' 'no loss' | verdict)"
expect "another loss than expected" \
    $'a: expected "loss: x", found "loss: y"\nstates: 10, seconds of search: 2\nmodels: 1, as expected: 0\nstatus 1' \
    "$(row a 'loss: x' 'loss: y' | verdict)"
expect "search that was cut" \
    $'a: expected "no loss", found "not finished"\nstates: 10, seconds of search: 2\nmodels: 1, as expected: 0\nstatus 1' \
    "$(row a 'no loss' 'not finished' | verdict)"
expect "search without a state" \
    $'a: no state was searched\nstates: 0, seconds of search: 2\nmodels: 1, as expected: 0\nstatus 1' \
    "$(row a 'no loss' 'no loss' 0 | verdict)"
expect "search without an expectation" \
    $'a: expected "", found ""\nstates: 10, seconds of search: 2\nmodels: 1, as expected: 0\nstatus 1' \
    "$(row a '' '' | verdict)"
expect "search listed twice" \
    $'a: listed twice\nstates: 20, seconds of search: 4\nmodels: 2, as expected: 1\nstatus 1' \
    "$({ row a 'no loss' 'no loss'; row a 'no loss' 'no loss'; } | verdict)"
expect "line that is cut" \
    $'line 2 is no search: b\tevent\nstates: 10, seconds of search: 2\nmodels: 2, as expected: 1\nstatus 1' \
    "$({ row a 'no loss' 'no loss'; printf 'b\tevent\n'; } | verdict)"
expect "empty record" $'states: 0, seconds of search: 0\nmodels: 0, as expected: 0\nstatus 1' "$(verdict </dev/null)"

# ---- the list of searches

while IFS=$'\t' read -r name model sample expected switches; do
    [[ $name == \#* ]] && continue
    [[ -f $model.pml && $sample =~ ^(sample|-)$ && $expected =~ ^(no loss$|loss: |reached: ) && $switches == -D* ]] || {
        printf 'models.tsv: %s is not a search\n' "$name"
        failed=1
    }
    for switch in $switches; do
        switch=${switch#-D}
        grep -qw -- "${switch%%=*}" ./*.pml || {
            printf 'models.tsv: %s: no model knows %s\n' "$name" "$switch"
            failed=1
        }
    done
done <models.tsv

exit "$failed"
