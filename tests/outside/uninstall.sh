#!/usr/bin/env bash
# What is installed into an empty prefix is gone when it is uninstalled, and what others have there stays.
#
# usage: uninstall.sh BUILD-TREE SCRIPT
set -euo pipefail
build=$1
script=$2
work=$(mktemp -d "$PWD/outside.XXXXXX")
lists=$(mktemp -d "$PWD/outside.XXXXXX")
trap 'rm -rf "$work" "$lists"' EXIT

components=(library headers docs)
[[ ! -e $build/bin/bm ]] || components+=(tools)
for component in "${components[@]}"; do
    cmake --install "$build" --prefix "$work" --component "$component" >/dev/null
    mv "$build/install_manifest_$component.txt" "$lists"
done
touch "$work/include/others.h" "$work/include/ZRK4bm/others.h"
(($(find "$work" ! -type d | wc -l) > 20)) || { echo "hardly anything is installed" && exit 1; }

cmake -D BUILD_TREE="$lists" -P "$script" >/dev/null
left=$(cd "$work" && find . ! -type d -o -type d -name ZRK4bm | sort)
[[ $left == $'./include/ZRK4bm\n./include/ZRK4bm/others.h\n./include/others.h' ]] || { echo "left: $left" && exit 1; }
! cmake -D BUILD_TREE="$lists" -P "$script" 2>/dev/null
