#!/usr/bin/env bash
# Builds the library and runs the whole test suite twice: a Release build in
# build/ (benchmarks compiled too, so they keep building), then a Debug build
# with AddressSanitizer and UBSan in build-asan/.
# Usage: scripts/test.sh [--release-only | --sanitize-only]
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
if [[ "$mode" != "--sanitize-only" ]]; then
  run_suite build -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_TESTS=ON -DQX_BUILD_BENCH=ON
fi
if [[ "$mode" != "--release-only" ]]; then
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  run_suite build-asan -DCMAKE_BUILD_TYPE=Debug -DQX_SANITIZE=ON -DQX_BUILD_TESTS=ON \
    -DQX_BUILD_BENCH=OFF
fi
