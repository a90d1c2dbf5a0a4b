#!/bin/bash
# Counts with strace the calls into the kernel that an event costs: of the references exactly the demanded ones in the
# demanded order, of the library no more. Tries that find a lock busy are not counted, and neither is the yielding with
# which the two processes wait for each other: under a tracer, which stops every call, they meet at locks that are free
# otherwise.
# usage: calls.sh BM_BENCH COUNT_CALLS
set -euo pipefail

readonly events=60 warm_up=5 demanded=35
bench=$1
count_calls=$2
if ! strace -o /dev/null true 2>/dev/null; then
    echo "no strace, or no process may be traced here" >&2
    exit 125
fi
work=$(mktemp -d "$PWD/bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

fail()
{
    echo "FAILED: $*" >&2
    exit 1
}

readonly first_of_writer='sem_num=1, sem_op=-1, sem_flg=0}' first_of_reader='^recvfrom[(].*MSG_WAITALL'

# The call log of the process that makes such a call.
log_with() { grep -l -- "$1" "$work/$2".*; }

# counted LOG FIRST-CALL: the counted calls of all events but the first ones and the last, each behind a line "event".
counted()
{
    grep -v -e '^sched_yield' -e '^clock_gettime' -e '= -1 EAGAIN' "$1" |
        awk -v first="$2" -v skip=$warm_up -v all=$events '
            $0 ~ first { if (seen > skip && seen < all) printf "event\n%s", calls; ++seen; calls = "" }
            { calls = calls $0 "\n" }'
}

# How many calls each of those events has: the different counts, one per line.
counts() { counted "$@" | awk '/^event/ { if (NR > 1) print n; n = 0; next } { ++n } END { print n }' | sort -n -u; }

trace()
{
    strace -ff -o "$work/$1" "$bench" --trace "$1" --events $events >"$work/$1.out" || exit $?
    writer_log=$(log_with "$first_of_writer" "$1")
    reader_log=$(log_with "$first_of_reader" "$1")
    writer_counts=$(counts "$writer_log" "$first_of_writer")
    reader_counts=$(counts "$reader_log" "$first_of_reader")
    [[ $(counted "$writer_log" "$first_of_writer" | grep -c '^event') -gt 40 ]] || fail "$1: no events of the writer"
    [[ $(counted "$reader_log" "$first_of_reader" | grep -c '^event') -gt 40 ]] || fail "$1: no events of the reader"
}

# in_words: calls by what they do. Every event has a slot of its own: its number is left out. A lock is first tried
# without waiting; what waits for a busy one is that same call again.
in_words()
{
    sed -E -e 's/^sem(timed)?op\(([0-9]+), \[\{sem_num=([0-9]+), sem_op=(-?[0-9]+), sem_flg=([A-Z_|0]+)\}\].*/\2 \3 \4 \5/' \
        -e 's/^([a-z]+)\(.*/\1/' -e 's/recvfrom/recv/' |
        awk -v data="$data" -v clients="$clients" -v slots="$slots" '
            NF < 4 { print; next }
            {
                set = $1 == data ? "data" : $1 == clients ? "clients" : $1 == slots ? "events" : "unknown"
                lock = $2 == 0 ? "gate" : $2 == 1 ? "count" : $2 == 4 ? "control" : $2 > 4 ? "slot" : "unknown"
                flags = $4 ~ /SEM_UNDO/ ? "undo" : $4 == "IPC_NOWAIT" ? "no-wait" : $4 == "0" ? "" : $4
                print set, lock, ($3 == -1 ? "take" : $3 == 1 ? "give" : $3), flags
            }' | sed 's/ $//'
}

# Every busy lock is slept on at once: the call behind a refused try is the same one, waiting.
sleeps_at_once()
{
    awk '
        refused != "" { if ($0 !~ refused || $0 ~ /IPC_NOWAIT/) { print "behind a refused try: " $0; bad = 1 } refused = "" }
        /= -1 EAGAIN/ { refused = substr($0, 1, index($0, "sem_flg=") - 1); gsub(/[^A-Za-z0-9_=, -]/, ".", refused) }
        END { exit bad }' "$1"
}

readonly taken='data count take
data gate take undo
data gate give undo
events control take undo
events count take no-wait
events gate take undo
events gate give undo'
readonly ended='events control take undo
data gate take undo
data gate give undo
data count give
events gate take undo
events gate give undo
events count give
events control give undo'
readonly strict_writers="$taken
clients control take undo
clients control give undo
clients control take undo
kill
clients control give undo
events control give undo
events slot take undo
events slot give undo
events slot take undo
sendto
events slot give undo"
readonly read='recv
events slot take undo
events slot give undo
events slot take undo
events slot give undo
clients slot take undo
clients slot give undo'
readonly strict_readers="$read
events slot take undo
events slot give undo
$ended"
readonly best_writers="$taken
clients control take undo
kill
clients control give undo
events control give undo
events slot take undo
sendto
events slot give undo"
readonly best_readers="$read
$ended"

# same_calls WHO LOG FIRST-CALL EXPECTED: every event has exactly these calls in this order.
same_calls()
{
    local wanted
    wanted=$(counted "$2" "$3" | grep -c '^event')
    diff <(counted "$2" "$3" | in_words) <(for ((i = 0; i < wanted; ++i)); do printf 'event\n%s\n' "$4"; done) \
        >"$work/difference" || fail "the $1 makes other calls: $(head -n 20 "$work/difference")"
}

# The set that a log's first call which matches works on.
set_of() { grep -m 1 -- "$1" "$writer_log" | grep -o '[0-9]\+' | head -n 1 || fail "the reference never calls $1"; }

# name_sets: which semaphore set is which.
name_sets()
{
    data=$(set_of "$first_of_writer")
    slots=$(set_of 'sem_num=1, sem_op=-1, sem_flg=IPC_NOWAIT')
    clients=$(grep -m 1 -B 1 '^kill' "$writer_log" | grep -o '[0-9]\+' | head -n 1) || fail "a reference never calls kill"
}

trace strict
[[ $((writer_counts + reader_counts)) == "$demanded" ]] || fail "strict: $writer_counts and $reader_counts calls"
name_sets
same_calls "strict writer" "$writer_log" "$first_of_writer" "$strict_writers"
same_calls "strict reader" "$reader_log" "$first_of_reader" "$strict_readers"
sleeps_at_once "$writer_log" || fail "the strict writer does not sleep on a busy lock"
sleeps_at_once "$reader_log" || fail "the strict reader does not sleep on a busy lock"
echo "strict: $writer_counts calls of the writer and $reader_counts of the reader per event"

trace best
name_sets
same_calls "best writer" "$writer_log" "$first_of_writer" "$best_writers"
same_calls "best reader" "$reader_log" "$first_of_reader" "$best_readers"
echo "best: $writer_counts calls of the writer and $reader_counts of the reader per event"

trace library
most=$(($(tail -n 1 <<<"$writer_counts") + $(tail -n 1 <<<"$reader_counts")))
((most <= demanded)) || fail "the library: up to $most calls per event"
echo "library: up to $(tail -n 1 <<<"$writer_counts") calls of the writer and $(tail -n 1 <<<"$reader_counts") of the reader per event"

# counted_shape SUBJECT W/R/B: calls per event, of so many writers, readers and blocks.
counted_shape() { "$count_calls" "$bench" 10 30 "$1" "shape/$2" | cut -f 5; }

while read -r shape strict best; do
    [[ $(counted_shape strict "$shape") == "$strict" ]] || fail "strict, $shape: not $strict calls"
    [[ $(counted_shape best "$shape") == "$best" ]] || fail "best, $shape: not $best calls"
    own=$(counted_shape library "$shape")
    awk "BEGIN { exit !($own > 0 && $own <= $strict) }" || fail "the library, $shape: $own calls, not $strict or fewer"
    echo "$shape: strict $strict, best $best, library $own"
done <<'SHAPES'
1/1/1 35 29
2/2/2 63 49
8/1/8 140 106
8/3/8 166 124
SHAPES

! "$count_calls" "$bench" 5 10 library growth/writers/0 >"$work/none" 2>&1 || fail "calls of a scenario that there is not"
