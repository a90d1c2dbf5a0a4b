#!/usr/bin/env bash
# A run of soak must end as expected: run.sh FOLDER-OF-PROGRAMS STATUS-OF-THE-SUMMARY ARGUMENTS...
set -euo pipefail
programs=$1
expected=$2
shift 2
work=$(mktemp -d "$PWD/soak.XXXXXX")
trap 'rm -rf "$work"' EXIT
"$programs/soak" --folder "$work" "$@"
status=0
"$programs/soak_summary" "$work/record" || status=$?
if ((status != expected)); then
    grep -vE '^(start|kill|stop|go-on) ' "$work/record" >&2
    tail -n 5 "$work"/*.log >&2
    echo "FAILED: status $status, not $expected" >&2
    exit 1
fi
