# What a search found: reads the verifier's report and, behind it, the replay of its trail in words; prints outcome,
# states and depth, separated by tabs. "no loss" is said only of a search that was exhaustive and complete.
/^Full statespace search for:/ { full = 1 }
/Search not completed|max search depth too small|out of memory|MEMLIM bound/ { cut = 1 }
/^Bit statespace search|hash-compact|HC[0-9]? *-/ { approximate = 1 }
/^pan:[0-9]+: assertion violated/ { violated = 1 }
/^pan:[0-9]+: invalid end state/ { stuck = 1 }
/, errors: [0-9]+$/ { reported = 1; errors = $NF; depth = $0; sub(/.*depth reached /, "", depth); sub(/,.*/, "", depth) }
/ states, stored/ { states = $1 }
/^ *(loss|reached): / && named == "" { named = $0; sub(/^ +/, "", named); sub(/ +$/, "", named) }
END {
    if (!reported) outcome = "no report"
    else if (stuck) outcome = "processes wait for each other"
    else if (violated) outcome = named == "" ? "a loss without a name" : named
    else if (errors > 0) outcome = "an error of another kind"
    else if (approximate || !full) outcome = "not exhaustive"
    else if (cut) outcome = "not finished"
    else if (states + 0 == 0) outcome = "nothing searched"
    else outcome = "no loss"
    printf "%s\t%d\t%d\n", outcome, states, depth
}
