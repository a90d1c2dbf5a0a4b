#!/bin/bash
# A block that goes back early is free while the handler still works; one that does not is not.
# usage: early.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
bin=$1
records=$2

# free_while_at_work 0|1 BUFFERS: in all events but the last, during which the writer, on its way out, takes them all.
free_while_at_work() {
    start "reader$1" "$bin/example_early_return" --records "$records" --events 5 --early "$1" --work 5
    "$bin/example_writer" --records "$records" --events 5 --period 100 >"$work/writer.log" || fail "no writer"
    finished "reader$1"
    [[ $(grep '^sum ' "$work/reader$1.log" | head -n 4 | grep -c ", $2 of 32 buffers free$") == 4 ]] ||
        fail "not $2 buffers with --early $1"
}

start master "$bin/example_master" --records "$records"
free_while_at_work 1 32
free_while_at_work 0 31
end_master
