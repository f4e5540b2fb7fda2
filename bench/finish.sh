#!/usr/bin/env bash
# Finishing passes on a 24 MP picture at 8 and 16 bits, 1 and 2 threads (bench_finish),
# beside OpenCV's nearest equivalents on the same kind of picture, in one run, with the
# peak memory of each. Usage: bench/finish.sh [build-dir] [repeats]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build-bench}
repeats=${2:-2}
"$root/scripts/deps.sh" bench

cmake -S "$root" -B "$build" -G Ninja -DLV_BUILD_BENCH=ON -DLV_BUILD_TESTS=OFF \
      -DLV_BUILD_TOOLS=OFF -DCMAKE_BUILD_TYPE=Release >/dev/null
ninja -C "$build" -j2 bench_finish >/dev/null

mem=$(mktemp)
trap 'rm -f "$mem"' EXIT
/usr/bin/time -f "%M" -o "$mem" "$build/bench/bench_finish" "$repeats"
echo "peak memory bench_finish: $(( $(cat "$mem") / 1024 )) MB (source, output, HSL copy, fake exposures)"
for t in 1 2; do
  /usr/bin/time -f "%M" -o "$mem" /usr/bin/python3 "$root/bench/finish_peers.py" "$t" "$repeats"
  echo "peak memory opencv ($t threads): $(( $(cat "$mem") / 1024 )) MB"
done
echo "The machine may be shared: compare ratios within this run, not absolute figures."
