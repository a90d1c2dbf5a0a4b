#!/usr/bin/env bash
# The benchmark: events per second and latency, beside a bare program that makes the same system calls.
# Arguments are the benchmark's own. With --recovery [ROUNDS]: what a death costs, and the monitor.
set -euo pipefail
. "$(dirname "$0")/lib.sh"
program=bm_bench
if [[ ${1:-} == --recovery ]]; then
    program=bm_recovery
    shift
fi
build_program bench "$program"
exec "build/release/bin/$program" "$@"
