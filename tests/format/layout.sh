#!/usr/bin/env bash
# Compares the layout that an object's debug information tells with a list. A difference can be taken over as it stands.
#
# usage: layout.sh READELF OBJECT LIST HEADER...
set -euo pipefail
readelf=$1
object=$2
list=$3
shift 3

found=$("$readelf" --debug-dump=rawline,info "$object" |
    awk -v headers="${*##*/}" -f "$(dirname "$0")/layout.awk" | LC_ALL=C sort)
if (($(wc -l <<<"$found") < 100)); then
    echo "no layout in $object" >&2
    exit 1
fi
diff "$list" <(echo "$found")
