#!/usr/bin/env bash
# Merge and Radiance file throughput against OpenCV on the full-size night bracket, in one
# run: OpenCV's MergeDebevec, .hdr writer and reader (two threads) and ours (one thread).
# usage: bench/merge_rgbe.sh [bracket folder] [repeats]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh bench
folder=${1:-../shared/data/night/full}
repeats=${2:-3}
python=/usr/bin/python3
[ -x "$python" ] || python=python3

cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DLV_BUILD_BENCH=ON \
  -DLV_BUILD_TESTS=OFF -DLV_BUILD_TOOLS=OFF >/dev/null
cmake --build build-bench -j 2 --target bench_merge_rgbe >/dev/null

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cv_out=$("$python" bench/merge_rgbe_opencv.py "$folder" "$scratch/bracket.raw" "$scratch/cv.hdr" "$repeats")
echo "$cv_out"
read -r _ n w h <<<"$(grep '^dims' <<<"$cv_out")"
lv_out=$(build-bench/bench/bench_merge_rgbe "$scratch/bracket.raw" "$n" "$w" "$h" "$scratch/lv.hdr" "$repeats")
echo "$lv_out"

# Ratios of OpenCV's time to ours: above 1 means we are faster.
printf '%s\n%s\n' "$cv_out" "$lv_out" | awk -v mp="$(awk -v w="$w" -v h="$h" 'BEGIN{print w*h/1e6}')" '
  /^cv_/ { cv[substr($1, 4)] = $2 }
  /^lv_/ { lv[substr($1, 4)] = $2 }
  END {
    for (s in lv)
      printf "%-6s ours %.3f s (%.1f MP/s), OpenCV %.3f s (%.1f MP/s): %.2fx\n",
             s, lv[s], mp / lv[s], cv[s], mp / cv[s], cv[s] / lv[s]
  }'
