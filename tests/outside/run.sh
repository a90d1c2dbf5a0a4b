#!/usr/bin/env bash
# Builds and runs a project of its own against the installed library, once found by CMake and once by pkg-config. The
# prefix is empty before, and is moved after the installation.
#
# usage: run.sh BUILD-TREE FOLDER-OF-LIBRARIES COMPILER
set -euo pipefail
build=$1
libdir=$2
compiler=$3
project=$(cd "$(dirname "$0")/project" && pwd)
work=$(mktemp -d "$PWD/outside.XXXXXX")
trap 'rm -rf "$work"' EXIT

namespace=(unshare --ipc)
"${namespace[@]}" true 2>/dev/null || namespace+=(--map-root-user)
"${namespace[@]}" true || exit 125

for component in library headers; do
    cmake --install "$build" --prefix "$work/made" --component "$component" >/dev/null
done
prefix=$work/elsewhere
mv "$work/made" "$prefix"

run() {
    # A program asks for the interface that it was built with, not for one version.
    [[ $(readelf -d "$1/exchange") == *'[libZRK4bm.so.0]'* ]] || { echo "it does not ask for libZRK4bm.so.0" && exit 1; }
    "$1/names"
    timeout 60 "${namespace[@]}" "$1/exchange" | tail -n 1
    [[ ${PIPESTATUS[0]} == 0 ]]
}

echo "by CMake:"
unset LD_LIBRARY_PATH
cmake -S "$project" -B "$work/cmake" -D CMAKE_PREFIX_PATH="$prefix" -D CMAKE_CXX_COMPILER="$compiler" >"$work/log" ||
    { cat "$work/log" && false; }
cmake --build "$work/cmake" >"$work/log" || { cat "$work/log" && false; }
run "$work/cmake"

echo "by pkg-config:"
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
pkg-config --exact-version="$(sed -n 's/^Version: //p' "$PKG_CONFIG_PATH/ZRK4bm.pc")" ZRK4bm
read -r -a flags < <(pkg-config --cflags --libs ZRK4bm)
mkdir "$work/plain"
for program in exchange names; do
    "$compiler" -std=c++17 "$project/$program.cpp" -o "$work/plain/$program" "${flags[@]}"
done
LD_LIBRARY_PATH=$prefix/$libdir run "$work/plain"
