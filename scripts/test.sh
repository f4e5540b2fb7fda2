#!/usr/bin/env bash
# Builds and runs every test: an optimised build, then a build under AddressSanitizer and
# UndefinedBehaviorSanitizer (with clang, which also builds the fuzz targets and runs each
# for a fixed number of runs from a fixed seed). The optimised build includes the install
# check of an outside project.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/deps.sh test

jobs=$(nproc 2>/dev/null || echo 2)
# Fuzzing in the test command is repeatable: a fixed seed and a fixed number of runs per
# target. Set LV_FUZZ_SECONDS for a longer, randomly seeded search.
fuzz_runs=${LV_FUZZ_RUNS:-60000}
if [ -n "${LV_FUZZ_SECONDS:-}" ]; then
  fuzz_budget=(-max_total_time="$LV_FUZZ_SECONDS")
else
  fuzz_budget=(-seed=1 -runs="$fuzz_runs")
fi

echo "== optimised build"
cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j "$jobs"
ctest --test-dir build --output-on-failure -j "$jobs"

echo "== sanitizer build"
san_flags=(-DLV_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo)
if command -v clang++ >/dev/null; then
  san_flags+=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DLV_FUZZ=ON)
fi
cmake -S . -B build-san -G Ninja "${san_flags[@]}" >/dev/null
cmake --build build-san -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-san --output-on-failure -j "$jobs"

shopt -s nullglob
fuzzers=(build-san/tests/fuzz/fuzz_*)
if [ ${#fuzzers[@]} -gt 0 ]; then
  echo "== fuzzing: ${fuzz_budget[*]} per target"
  for f in "${fuzzers[@]}"; do
    [ -x "$f" ] || continue
    name=$(basename "$f")
    corpus="build-san/fuzz-corpus/$name"
    rm -rf "$corpus"
    mkdir -p "$corpus"
    seeds="tests/fuzz/seeds/${name#fuzz_}"
    [ -d "$seeds" ] || seeds=""
    budget=("${fuzz_budget[@]}")
    # The enhancer's target runs a whole tone map per input, some 10 times slower than a
    # file reader's: a tenth of the runs keeps its share of the time in line.
    if [ "$name" = fuzz_enhancer_source ] && [ -z "${LV_FUZZ_SECONDS:-}" ]; then
      budget=(-seed=1 -runs=$((fuzz_runs / 10)))
    fi
    "$f" "${budget[@]}" -max_len=65536 -rss_limit_mb=2048 -timeout=10 \
      "$corpus" $seeds 2>&1 | tail -n 2
  done
fi
echo "== all tests passed"
