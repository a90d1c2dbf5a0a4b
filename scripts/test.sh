#!/usr/bin/env bash
# Builds and runs everything that must hold before a change is taken: the suite as it is installed, under the address
# and undefined-behaviour sanitizers and under the thread sanitizer, the library with a second compiler, layout and
# common mistakes of the sources. Nothing may be skipped, and nothing may be left behind on the host.
#
# usage: scripts/test.sh [--quick | --preset NAME]
set -euo pipefail
. "$(dirname "$0")/lib.sh"

usage() {
    cat <<'TEXT'
usage: scripts/test.sh [--quick | --preset NAME]
  --quick        the release suite and the layout of the sources
  --preset NAME  the suite of that preset alone
TEXT
    exit "$1"
}

presets=(release asan-ubsan tsan)
checks=(layout mistakes second_compiler soak kill_sweep call_faults hostile_data model documentation)
while (($# > 0)); do
    case $1 in
        --quick)
            presets=(release)
            checks=(layout)
            ;;
        --preset)
            [[ -n ${2:-} ]] || usage 2 >&2
            presets=("$2")
            checks=()
            shift
            ;;
        -h | --help) usage 0 ;;
        *) usage 2 >&2 ;;
    esac
    shift
done

passed=0
failed=0
failures=()
times=() # what took how long: the run has a budget
words= # of the tests that failed

# One check that is not a test of the suite: a name, and the command that must succeed.
check() {
    local name=$1 status=0 began=$SECONDS
    shift
    printf '\n== %s\n' "$name"
    "$@" || status=$?
    times+=("$((SECONDS - began)) s  $name")
    if ((status == 0)); then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        failures+=("$name")
    fi
    return 0
}

layout() { scripts/lint.sh --format; }
# What is shipped; the tests take as long again, and are looked at with scripts/lint.sh.
mistakes() { scripts/lint.sh --tidy library examples; }

# A compiler and CMake are all that the libraries need.
second_compiler() {
    cmake -S . -B build/clang -DBUILD_TESTING=OFF -DZRK4_TOOLS=OFF -DZRK4_WERROR=ON -DCMAKE_CXX_COMPILER=clang++ &&
        cmake --build build/clang -j "$(nproc)" &&
        [[ -e build/clang/lib/libZRK4bm.so && -e build/clang/lib/libZRK4evutl.so ]]
}

# The length that a change is worth; before a release scripts/soak.sh runs for a day.
soak() { scripts/soak.sh 40; }
# Checked and mended by the operator's command: what the library's checker finds, it must say.
kill_sweep() { scripts/kill-sweep.sh --sample --with-command; }
hostile_data() { scripts/fuzz.sh --runs 20000; }
call_faults() { scripts/call-faults.sh --sample; }

# The searches that take a minute together; scripts/model.sh makes all of them.
model() { scripts/model.sh --sample; }

documentation() { scripts/docs.sh; }

# Segments and semaphore sets of the host, and running programs of this tree, one per line: what lies in a namespace of
# its own goes with the last process in it, and no sooner.
traces() {
    ipcs -m | awk '$2 ~ /^[0-9]+$/ { print "segment", $2, "key", $1, "owner", $3 }' || return
    ipcs -s | awk '$2 ~ /^[0-9]+$/ { print "semaphore set", $2, "key", $1, "owner", $3 }' || return
    find /proc -maxdepth 2 -name exe -lname "$PWD/build/*" -printf 'process %h %l\n' 2>/dev/null || true
}

# A killed parent's children end a moment after it.
nothing_left_behind() {
    local now left tries
    for ((tries = 0; tries < 10; ++tries)); do
        now=$(traces) || return
        left=$(comm -13 <(sort <<<"$traces_before") <(sort <<<"$now"))
        [[ -n $left ]] || return 0
        sleep 0.5
    done
    printf 'left behind:\n%s\n' "$left"
    return 1
}

build_suite() {
    cmake --preset "$1" && run_for "$1" cmake --build --preset "$1" -j "$(nproc)"
}

# An attribute of the suite's one line in ctest's report.
reported() { sed -n "s/.*[[:space:]]$2=\"\([0-9]*\)\".*/\1/p; /<testcase/q" "$1" | head -n 1; }

# The names of the failed tests; what they said stands at the end as well, where a reader of a long log looks first.
failed_tests() { sed -n 's/^.*<testcase name="\([^"]*\)".* status="fail".*$/\1/p' "$1"; }

# What the failed tests of a suite printed, out of ctest's own log.
words_of_failed() {
    awk '/^[0-9]+\/[0-9]+ Testing: / { block = "" } { block = block "\n" $0 } /^Test Failed\.$/ { print block }' \
        "build/$1/Testing/Temporary/LastTest.log" | tail -n 200
}

# What the suite of a preset reported joins the count. A test that did not run proves nothing: it counts as failed.
count_suite() {
    local preset=$1 report=$2 tests failures_here not_run
    if [[ ! -s $report ]]; then
        check "$preset: report of the suite" false
        return
    fi
    tests=$(reported "$report" tests)
    failures_here=$(reported "$report" failures)
    not_run=$(($(reported "$report" skipped) + $(reported "$report" disabled)))
    passed=$((passed + tests - failures_here - not_run))
    failed=$((failed + failures_here + not_run))
    if ((failures_here > 0)); then
        mapfile -t -O "${#failures[@]}" failures < <(failed_tests "$report" | sed "s/^/$preset: /")
        words+=$(words_of_failed "$preset")
    fi
    if ((not_run > 0)); then failures+=("$preset: $not_run tests did not run"); fi
}

no_test_skips() {
    local log=build/$1/Testing/Temporary/LastTest.log
    [[ -s $log ]] && ! grep -E '^\[  SKIPPED \] [^0-9]' "$log"
}

run_suite() {
    local preset=$1 report=$PWD/build/$1/ctest.xml failed_before=$failed
    check "$preset: build" build_suite "$preset"
    if ((failed > failed_before)); then return; fi
    printf '\n== %s: suite\n' "$preset"
    local began=$SECONDS
    rm -f "$report"
    run_for "$preset" ctest --preset "$preset" -j "$(nproc)" --output-junit "$report" | grep -vE '^ +Start +[0-9]+: ' ||
        true
    times+=("$((SECONDS - began)) s  $preset: suite")
    count_suite "$preset" "$report"
    check "$preset: no test skips a part of itself" no_test_skips "$preset"
}

scripts/install-deps.sh test
traces_before=$(traces)
for preset in "${presets[@]}"; do run_suite "$preset"; done
for name in "${checks[@]}"; do check "${name//_/ }" "$name"; done
check "nothing left behind on the host" nothing_left_behind

printf '%s\n\n' "$words"
printf '%s\n' "${times[@]}" | sort -rn | head -n 12
for name in "${failures[@]}"; do printf 'failed: %s\n' "$name"; done
printf '%d passed, %d failed\n' "$passed" "$failed"
((failed == 0))
