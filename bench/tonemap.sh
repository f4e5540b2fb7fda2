#!/usr/bin/env bash
# Side-by-side benchmark of the global tone mapper: tm_simple (default settings, and
# colour curves with one mask layer; 1 and 2 threads) against OpenCV's TonemapReinhard
# and pfstools' pfstmo_reinhard05 on the same 12 MP HDR image, in one run.
# Usage: bench/tonemap.sh [build-dir] [repeats]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
repeats=${2:-3}
data=$root/../shared/data
[ -d "$data/night/full" ] || { echo "sample photographs not found in $data" >&2; exit 1; }
"$root/scripts/deps.sh" bench

cmake -S "$root" -B "$build" -G Ninja -DLV_BUILD_BENCH=ON -DLV_BUILD_TESTS=OFF \
      -DLV_BUILD_TOOLS=OFF >/dev/null
ninja -C "$build" -j2 bench_tonemap >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
/usr/bin/python3 "$root/bench/tonemap_peers.py" make "$data" "$work"

results=$work/results.txt
mem() { /usr/bin/time -f "%M" -o "$work/mem" "$@"; }
mem "$build/bench/bench_tonemap" "$work/night.f32" "$repeats" | tee "$results"
echo "peak memory bench_tonemap: $(( $(cat "$work/mem") / 1024 )) MB (includes the float copy)"
for t in 1 2; do
  mem /usr/bin/python3 "$root/bench/tonemap_peers.py" opencv "$work/night.hdr" "$t" "$repeats" \
    | tee -a "$results"
  echo "peak memory opencv ($t threads): $(( $(cat "$work/mem") / 1024 )) MB"
done

# pfstools: the operator alone, on a frame already decoded to its own stream format.
pfsin "$work/night.hdr" > "$work/night.pfs"
mp=$(awk '/^image/ {print $3}' "$results")
best=
for _ in $(seq "$repeats"); do
  /usr/bin/time -f "%e %M" -o "$work/pfs_time" pfstmo_reinhard05 < "$work/night.pfs" > /dev/null
  best=$(awk -v b="$best" '{ print (b == "" || $1 < b) ? $1 : b }' "$work/pfs_time")
  awk '{print $2}' "$work/pfs_time" > "$work/mem"
done
awk -v mp="$mp" -v t="$best" 'BEGIN { printf "pfstools reinhard05 1 %.2f\n", mp / t }' | tee -a "$results"
echo "peak memory pfstmo_reinhard05: $(( $(cat "$work/mem") / 1024 )) MB"

echo
echo "ratios against OpenCV TonemapReinhard at the same thread count:"
awk '
  $1 == "opencv" { cv[$3] = $4 }
  $1 == "lumivantor" { lv[$2 " " $3] = $4 }
  $1 == "pfstools" { pf = $4 }
  END {
    for (k in lv) { split(k, a, " "); printf "  %-12s %d thread(s): %.2f MP/s = %.1fx OpenCV, %.1fx pfstools\n", a[1], a[2], lv[k], lv[k] / cv[a[2]], lv[k] / pf }
    printf "  scaling 1 -> 2 threads: default %.2fx, colour+mask %.2fx\n", lv["default 2"] / lv["default 1"], lv["colour+mask 2"] / lv["colour+mask 1"]
  }' "$results"
