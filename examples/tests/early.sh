#!/bin/bash
# A block that goes back early is free while the handler still works; one that does not is not.
# usage: early.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
bin=$1
records=$2

# all_free_while_at_work 0|1: sets all_free to the number of events, of five, at whose end all buffers were free. A writer
# that is late has the next one in hand already, and on its way out it takes them all.
all_free_while_at_work() {
    start "reader$1" "$bin/example_early_return" --records "$records" --events 5 --early "$1" --work 5
    "$bin/example_writer" --records "$records" --events 5 --period 100 >"$work/writer.log" || fail "no writer"
    finished "reader$1"
    [[ $(grep -cE '^sum [0-9.]+, [0-9]+ of 32 buffers free$' "$work/reader$1.log") == 5 ]] || fail "not five events"
    all_free=$(grep -c ', 32 of 32 buffers free$' "$work/reader$1.log") || true
}

start master "$bin/example_master" --records "$records"
all_free_while_at_work 1
((all_free > 0)) || fail "no block was free before its event was over"
all_free_while_at_work 0
((all_free == 0)) || fail "a block was free although nobody gave it back"
end_master
