#!/usr/bin/env bash
# The tower blend of exposure fusion (weight towers, band-pass sum, collapse, on the calling
# thread) beside OpenCV's pyramid operations and MergeMertens on the same synthetic bracket,
# in one run, with peak memory. Usage: bench/towers.sh [build-dir] [width height n repeats]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
w=${2:-4000} h=${3:-3000} n=${4:-5} repeats=${5:-2}
"$root/scripts/deps.sh" bench
cmake -S "$root" -B "$build" -G Ninja -DLV_BUILD_BENCH=ON -DLV_BUILD_TESTS=OFF \
      -DLV_BUILD_TOOLS=OFF >/dev/null
ninja -C "$build" -j2 bench_towers >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
/usr/bin/time -f "%M" -o "$work/mem" "$build/bench/bench_towers" "$w" "$h" "$n" "$repeats" \
  | tee "$work/ours"
echo "peak memory bench_towers: $(( $(cat "$work/mem") / 1024 )) MB (includes the 8-bit bracket)"
/usr/bin/time -f "%M" -o "$work/mem" /usr/bin/python3 "$root/bench/towers_peers.py" \
  "$w" "$h" "$n" "$repeats" | tee "$work/peers"
echo "peak memory opencv: $(( $(cat "$work/mem") / 1024 )) MB (includes the 8-bit bracket)"
ours=$(awk '/^blend_total/ {print $2}' "$work/ours")
awk -v o="$ours" '{ printf "%s / blend_total = %.2f\n", $1, $2 / o }' "$work/peers"
