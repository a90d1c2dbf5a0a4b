#!/usr/bin/env bash
# The benchmark: events per second and latency, beside a bare program that makes the same system calls.
# Arguments are the benchmark's own.
set -euo pipefail
. "$(dirname "$0")/lib.sh"
build_program bench bm_bench
exec build/release/bin/bm_bench "$@"
