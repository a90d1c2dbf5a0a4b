# The verdict on a coverage report: awk -f summary.awk readers.txt report.csv
# The report is gcovr's CSV: file, lines, lines executed, their ratio, branches, branches taken, ... Exit status: 0 when the
# readers reach both goals and none of them is missing.
BEGIN {
    FS = ","
    LINES_GOAL = 99
    BRANCHES_GOAL = 95
}
function percent(part, whole) { return whole > 0 ? 100 * part / whole : 100 }
function row(name, all, executed_, branches_, taken_) {
    printf "%-42s lines %5d of %5d %6.2f %%   ", name, executed_, all, percent(executed_, all)
    printf "branches %5d of %5d %6.2f %%\n", taken_, branches_, percent(taken_, branches_)
}
FNR == 1 { files++ }
/^#/ || /^$/ { next }
files == 1 {
    wanted[$1] = 1
    next
}
$2 !~ /^[0-9]+$/ || $3 !~ /^[0-9]+$/ || $5 !~ /^[0-9]+$/ || $6 !~ /^[0-9]+$/ { next }
{
    row($1, $2, $3, $5, $6)
    lines += $2; executed += $3; branches += $5; taken += $6
    if ($1 in wanted) {
        seen[$1] = 1
        of_readers += $2; executed_of_readers += $3; branches_of_readers += $5; taken_of_readers += $6
    }
}
END {
    complete = 1
    for (name in wanted) {
        if (name in seen) continue
        printf "%s: not in the report\n", name
        complete = 0
    }
    row("library", lines, executed, branches, taken)
    row("readers", of_readers, executed_of_readers, branches_of_readers, taken_of_readers)
    goals = 0
    if (of_readers > 0 && percent(executed_of_readers, of_readers) >= LINES_GOAL) goals++
    if (branches_of_readers > 0 && percent(taken_of_readers, branches_of_readers) >= BRANCHES_GOAL) goals++
    printf "goals met: %d of 2\n", goals
    exit !(complete && goals == 2)
}
