#!/bin/bash
# Blocks of a format that the library does not know arrive as they were written, each as an event of its own.
# usage: foreign.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
bin=$1
records=$2

start master "$bin/example_master" --records "$records"
start reader "$bin/example_foreign_blocks" --records "$records" --role reader
"$bin/example_foreign_blocks" --records "$records" --role writer >"$work/writer.log" || fail "no writer"
finished reader
diff <(for i in {1..10}; do echo "CAMERA: frame $i, 40 x 30 of $i"; done) <(grep '^CAMERA: ' "$work/reader.log") ||
    fail "not every frame as it was written"
end_master
