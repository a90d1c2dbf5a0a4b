#!/usr/bin/env bash
# Draws a record: what an event costs as things grow, beside the formula at the strict reference's cost of a call, and
# events per second by the size of a block.
# usage: bench/curves.sh RECORD FOLDER
set -euo pipefail

record=$1 folder=$2
command -v gnuplot >/dev/null || {
    echo "no gnuplot: no curves are drawn" >&2
    exit 0
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$folder"

# median SCENARIO SUBJECT FIGURE: of all rounds; nothing where there is none.
median()
{
    awk -F '\t' -v scenario="$1" -v subject="$2" -v figure="$3" \
        '$2 == scenario && $3 == subject && $4 == figure { print $5 }' "$record" | sort -g |
        awk '{ v[NR] = $1 } END { if (NR > 0) print (v[int((NR + 1) / 2)] + v[int(NR / 2) + 1]) / 2 }'
}

sizes_of() { awk -F '\t' -v kind="growth/$1/" 'index($2, kind) == 1 { print substr($2, length(kind) + 1) }' "$record" | sort -n -u; }

draw()
{
    gnuplot <<GNUPLOT
set terminal svg size 720,420 font "sans,12" background "white"
set output "$folder/$1.svg"
set key left top
set grid
$2
GNUPLOT
}

call=$(awk "BEGIN { print $(median growth/unit strict processor_us) / 35 }")
for row in writers:3 readers:13 blocks:12 names:0 clients:0 slots:0; do
    kind=${row%:*} per_one=${row#*:}
    for n in $(sizes_of "$kind"); do
        printf '%s %s\n' "$n" "$(median "growth/$kind/$n" library processor_us)"
    done >"$work/$kind"
    first=$(head -n 1 "$work/$kind" | cut -d ' ' -f 2)
    [[ -n $first ]] || continue
    draw "growth-$kind" "set xlabel \"$kind\"
set ylabel \"processor time of an event, us\"
set yrange [0:*]
plot \"$work/$kind\" with linespoints pointtype 7 title \"library\", \
    $first + $per_one * $call * x with lines dashtype 2 title \"$per_one calls for each more\""
done

sizes=(1KiB 64KiB 1MiB 8MiB)
curves=()
for subject in library strict best iceoryx_waitset iceoryx_polling zeromq_pushpull zeromq_pubsub boost_queue unix_stream; do
    for i in "${!sizes[@]}"; do
        value=$(median "pipelined/${sizes[$i]}/2cpu" "$subject" events_per_second)
        if [[ -n $value ]]; then printf '%s %s %s\n' "$i" "$value" "${sizes[$i]}"; fi
    done >"$work/$subject"
    [[ -s $work/$subject ]] || continue
    curves+=("\"$work/$subject\" using 1:2:xtic(3) with linespoints title \"${subject//_/ }\"")
done
((${#curves[@]} > 0)) || exit 0
draw payload "set logscale y
set xlabel \"block\"
set ylabel \"events per second, two processors\"
set xrange [-0.2:3.2]
set key outside right
plot $(IFS=,; echo "${curves[*]}")"
