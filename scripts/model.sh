#!/usr/bin/env bash
# Searches the models of the protocol exhaustively: with every guard no loss is found, without one the loss has a name.
# The raw record has one line per search; the last line is derived from it. See docs/model.md.
set -euo pipefail
. "$(dirname "$0")/lib.sh"

usage() {
    cat <<'TEXT'
usage: scripts/model.sh [--sample | --canary] [--record FILE]
       scripts/model.sh --replay NAME
  --sample  the smaller searches: a minute
  --canary  one guard is taken out of a model of which "no loss" is expected, which must be reported
  --record  file of the raw record (build/model/record.tsv)
  --replay  one search of proofs/model/models.tsv, and what it found step by step
exit status: 0 all outcomes were as expected (with --canary: the missing guard was reported)
TEXT
    exit "$1"
}

part=.
canary=
replay=
record=build/model/record.tsv
while (($# > 0)); do
    case $1 in
        --sample) part=sample ;;
        --canary) canary=yes ;;
        --record | --replay)
            [[ -n ${2:-} ]] || usage 2 >&2
            if [[ $1 == --record ]]; then record=$2; else replay=$2; fi
            shift
            ;;
        -h | --help) usage 0 ;;
        *) usage 2 >&2 ;;
    esac
    shift
done

readonly folder=build/model
readonly sources=proofs/model
readonly seconds_allowed=170 # of a processor, each
readonly megabytes_allowed=1900

# Builds and runs one search; its place in the record is the file "line" in its own folder. The tools write files of
# fixed names where they are run, so none is run outside that folder.
search() {
    local name=$1 model=$2 size=$3 expected=$4 place=$folder/$1 began=$SECONDS
    local -a switches compiler=(-O2)
    read -ra switches <<<"$5"
    # Most searches end before the compiler would.
    if [[ $size == sample ]]; then compiler=(-O0); fi
    rm -rf "$place"
    mkdir -p "$place"
    (
        cd "$place" || exit
        ulimit -t "$seconds_allowed"
        spin -a "${switches[@]}" "$OLDPWD/$sources/$model.pml" >build.log 2>&1 &&
            gcc -w "${compiler[@]}" -DSAFETY -DMEMLIM="$megabytes_allowed" -o pan pan.c >>build.log 2>&1 &&
            ./pan -m1000000 -w20 >report 2>&1
    ) || true
    (cd "$place" && in_words "$OLDPWD/$sources/$model.pml" "${switches[@]}" >words)
    touch "$place/report"
    printf '%s\t%s\t%s\t%s\t%s\t%d\n' "$name" "$model" "${switches[*]}" "$expected" \
        "$(awk -f "$sources/outcome.awk" "$place/report" "$place/words")" $((SECONDS - began)) >"$place/line"
    rm -f "$place"/pan "$place"/pan.?
}

# The trail of a search, if it left one: a line per step, processes by number. What follows the steps is read too: a
# pipe closed early would end spin by a signal, and with it the search.
in_words() {
    local model=$1 trail
    shift
    trail=$(basename "$model").trail
    [[ -e $trail ]] || return 0
    spin -k "$trail" "$@" "$model" 2>/dev/null |
        sed 's/^ *//; /^#processes/,$d; /^spin: /d; /^$/d; s/^\([0-9]\): /process \1 /'
}

# As many searches at once as there are processors; each may take the memory allowed.
search_all() {
    local name model in_sample expected switches running=0
    while IFS=$'\t' read -r name model in_sample expected switches; do
        [[ $name == \#* || ! $in_sample =~ $part ]] && continue
        if ((running == $(nproc))); then
            wait -n || true # what it found, or that it found nothing, is read from its report
            running=$((running - 1))
        fi
        search "$name" "$model" "$in_sample" "$expected" "$switches" &
        running=$((running + 1))
        names+=("$name")
    done <"$sources/models.tsv"
    wait
}

scripts/install-deps.sh test
mkdir -p "$folder"

if [[ -n $replay ]]; then
    row=$(awk -F '\t' -v name="$replay" '$1 == name' "$sources/models.tsv")
    [[ -n $row ]] || die "no such search: $replay"
    IFS=$'\t' read -r name model in_sample expected switches <<<"$row"
    search "$name" "$model" "$in_sample" "$expected" "$switches"
    cat "$folder/$name/words"
    cut -f 3- "$folder/$name/line"
    exit
fi

names=()
if [[ -n $canary ]]; then
    names=(canary)
    search canary event sample "no loss" "-DREADERS=1 -DJUDGEMENTS=1 -DFINE -DNO_IDENTITY_AT_FREEING"
else
    search_all
fi
{
    printf '# name\tmodel\tswitches\texpected\toutcome\tstates\tdepth\tseconds\n'
    for name in "${names[@]}"; do
        cat "$folder/$name/line" || printf '%s\t\t\t\tno report\t0\t0\t0\n' "$name"
    done
} >"$record"
status=0
verdict=$(awk -f "$sources/summary.awk" "$record") || status=$?
if [[ -n $canary ]]; then judge_canary "the missing guard"; fi
printf 'record: %s\n%s\n' "$record" "$verdict"
exit "$status"
