# The verdict on a record of searches, one line each: name, model, switches, expected, outcome, states, depth, seconds,
# separated by tabs. Exit status: 0 when there is one at least and all are as expected.
BEGIN { FS = "\t" }
/^#/ { next }
NF != 8 || $6 !~ /^[0-9]+$/ || $7 !~ /^[0-9]+$/ || $8 !~ /^[0-9]+$/ {
    printf "line %d is no search: %s\n", NR, $0
    models++
    next
}
{
    models++
    seconds += $8
    states += $6
    if ($1 in seen) printf "%s: listed twice\n", $1
    else if ($4 == "" || $5 != $4) printf "%s: expected \"%s\", found \"%s\"\n", $1, $4, $5
    else if ($6 == 0) printf "%s: no state was searched\n", $1
    else as_expected++
    seen[$1] = 1
}
END {
    printf "states: %d, seconds of search: %d\n", states, seconds
    printf "models: %d, as expected: %d\n", models, as_expected
    exit !(models > 0 && as_expected == models)
}
