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
# The installed Python package loads the installed library with no variable telling it where.
if /usr/bin/python3 -c "import numpy" 2>/dev/null; then
  pkg=$(find "$work/prefix" -path '*/lumivantor/__init__.py' | head -n1)
  env -u LUMIVANTOR_LIBRARY -u LD_LIBRARY_PATH PYTHONPATH="$(dirname "$(dirname "$pkg")")" \
    /usr/bin/python3 -c 'import sys, lumivantor; assert lumivantor.library_path.startswith(sys.argv[1]), lumivantor.library_path' "$work/prefix"
  echo "installed Python package imports"
fi
echo "installed copy usable through CMake and pkg-config"
