#!/usr/bin/env bash
# The main job: builds the library and its example host, then runs the demo.
# Usage: scripts/demo.sh [output folder]   (default: demo-out)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target lvhdr -j "$(nproc 2>/dev/null || echo 2)" >/dev/null
exec build/tools/lvhdr demo "$@"
