#!/usr/bin/env bash
# Installs the built library into a scratch prefix, then builds and runs an outside
# project against it, once through find_package and once through pkg-config.
set -euo pipefail
build=$1
src=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/prefix" >/dev/null
cmake -S "$src" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
libdir=$(dirname "$(find "$work/prefix" -name 'liblumivantor.so*' | head -n1)")
LD_LIBRARY_PATH=$libdir "$work/build/consumer_c"
LD_LIBRARY_PATH=$libdir "$work/build/consumer_cxx"
"$work/build/consumer_static"
export PKG_CONFIG_PATH=$libdir/pkgconfig
flags=$(pkg-config --cflags --libs lumivantor)
cc -std=c99 -pedantic -Werror "$src/main.c" $flags -o "$work/pc_c"
LD_LIBRARY_PATH=$libdir "$work/pc_c"
echo "installed copy usable through CMake and pkg-config"
