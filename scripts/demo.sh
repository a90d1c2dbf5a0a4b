#!/usr/bin/env bash
# The demonstration: several processes sample this host and build events together for ten seconds.
# Arguments are the demo's own: --records 2010|2024, --mode time|evid, --seconds N, ...
set -euo pipefail
. "$(dirname "$0")/lib.sh"
build_program build demo
exec build/release/bin/demo "$@"
