#!/usr/bin/env bash
# Builds the library and runs the whole test suite twice: a Release build in
# build/ (benchmarks compiled too, so they keep building), then a Debug build
# with AddressSanitizer and UBSan in build-asan/; last, the concurrency tests
# (every test named *Concurrent*) under ThreadSanitizer in build-tsan/.
# Usage: scripts/test.sh [--release-only | --sanitize-only | --tsan-only]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh build test opencc prose bench

jobs="$(nproc 2>/dev/null || echo 2)"

run_suite() {
  local build_dir="$1"
  shift
  cmake -S . -B "$build_dir" "$@" >/dev/null
  cmake --build "$build_dir" -j "$jobs"
  ctest --test-dir "$build_dir" --output-on-failure -j "$jobs"
}

mode="${1:-all}"
if [[ "$mode" == "all" || "$mode" == "--release-only" ]]; then
  run_suite build -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_TESTS=ON -DQX_BUILD_BENCH=ON
fi
if [[ "$mode" == "all" || "$mode" == "--sanitize-only" ]]; then
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DQX_SANITIZE=ON -DQX_BUILD_TESTS=ON \
    -DQX_BUILD_BENCH=OFF
fi
if [[ "$mode" == "all" || "$mode" == "--tsan-only" ]]; then
  cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DQX_TSAN=ON -DQX_BUILD_BENCH=OFF \
    -DQX_BUILD_DATA=OFF >/dev/null
  cmake --build build-tsan -j "$jobs" --target test_pdat test_reentrant
  for t in test_pdat test_reentrant; do
    TSAN_OPTIONS=halt_on_error=1 "build-tsan/tests/$t" --gtest_filter='*Concurrent*'
  done
fi
