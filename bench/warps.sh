#!/usr/bin/env bash
# Mirror-ball warps to a 4096 x 2048 panorama with each filter, beside OpenCV's remap of the
# same sizes (its coordinate maps built with numpy, timed apart), in one run, with peak memory.
# Usage: bench/warps.sh [build-dir] [ballW ballH repeats]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
w=${2:-2048} h=${3:-2048} repeats=${4:-3}
"$root/scripts/deps.sh" bench
cmake -S "$root" -B "$build" -G Ninja -DLV_BUILD_BENCH=ON -DLV_BUILD_TESTS=OFF \
      -DLV_BUILD_TOOLS=OFF >/dev/null
ninja -C "$build" -j2 bench_warps >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
/usr/bin/time -f "%M" -o "$work/mem" "$build/bench/bench_warps" "$w" "$h" "$repeats" \
  | tee "$work/ours"
echo "peak memory bench_warps: $(( $(cat "$work/mem") / 1024 )) MB (includes the inputs)"
/usr/bin/time -f "%M" -o "$work/mem" /usr/bin/python3 "$root/bench/warps_peers.py" remap \
  "$w" "$h" "$repeats" | tee "$work/peers"
echo "peak memory opencv: $(( $(cat "$work/mem") / 1024 )) MB (includes the inputs)"
maps=$(awk '/^opencv_maps/ {print $2}' "$work/peers")
for kind in ldr hdr; do
  for f in nearest bilinear cubic; do
    ours=$(awk -v k="lumivantor_${kind}_$f" '$1 == k {print $2}' "$work/ours")
    theirs=$(awk -v k="opencv_${kind}_$f" '$1 == k {print $2}' "$work/peers")
    awk -v n="$kind $f" -v o="$ours" -v t="$theirs" -v m="$maps" 'BEGIN {
      printf "%-13s ours / opencv remap = %.2f, ours / (opencv maps + remap) = %.2f\n",
             n, o / t, o / (t + m) }'
  done
done
