#!/usr/bin/env bash
# The main job: builds the library and its example host, then runs the demo, which makes a
# synthetic bracket, merges it, tone-maps it and measures the merge against the truth, and
# ends by printing the path of the page that shows every step side by side.
# Usage: scripts/demo.sh [output folder]   (default: demo-out)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh build
echo "building lvhdr (first time: a minute or two)..."
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build --target lvhdr -j "$(nproc 2>/dev/null || echo 2)" >/dev/null
out=${1:-demo-out}
build/tools/lvhdr demo -o "$out"
echo "open the report page in a browser: file://$(cd "$out" && pwd)/index.html"
