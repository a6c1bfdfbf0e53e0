#!/usr/bin/env bash
# Builds the benchmark data if missing, then configures a Release build with
# the benchmarks in build-bench/, builds bench_pdat and runs it, printing the
# result table. Extra arguments go to bench_pdat (--chunk BYTES,
# --min-time SECONDS, --data DIR).
# Usage: bench/run.sh [bench_pdat options]
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh build bench
bash bench/make_data.sh

cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_BENCH=ON \
  -DQX_BUILD_TESTS=OFF -DQX_SANITIZE=OFF >/dev/null
cmake --build build-bench -j 2 --target bench_pdat
./build-bench/bench/bench_pdat "$@"
