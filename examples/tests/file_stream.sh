#!/bin/bash
# A file of more than 256 MiB through the blocks of three writers: what comes out is what went in. Once more with fewer
# event slots than the writers would use, and with an empty file.
# usage: file_stream.sh DIRECTORY-OF-THE-PROGRAMS 2010|2024
set -euo pipefail
# shellcheck source-path=SCRIPTDIR source=processes.sh
source "$(dirname "$0")/processes.sh"
bin=$1
records=$2

# stream FILE [OPTIONS OF THE MASTER...]
stream() {
    local file=$1
    shift
    start master "$bin/example_master" --records "$records" "$@"
    start receive "$bin/file_receive" --records "$records" --file "$work/copy"
    "$bin/file_send" --records "$records" --file "$file" --writers 3 >"$work/send.log" || fail "not sent"
    finished receive
    cmp "$file" "$work/copy" || fail "the copy differs"
    end_master
    rm "$work/master" "$work/receive" "$work/copy"
}

# No multiple of anything: the last event has a short piece and empty ones.
head -c $((256 * 1024 * 1024 + 12345)) /dev/urandom >"$work/original"
head -c $((20 * 1024 * 1024 + 1)) "$work/original" >"$work/part"
: >"$work/empty"
stream "$work/original"
stream "$work/part" --event-slots 3
stream "$work/empty"
