#!/usr/bin/env bash
# Builds the benchmark data if missing, then configures a Release build with
# the benchmarks in build-bench/, builds and runs them, printing their result
# tables:
#   pdat    bench_pdat: the dictionary beside marisa-trie and Hyperscan
#           (options --chunk BYTES, --min-time SECONDS, --data DIR);
#   engine  bench_engine: rule list load, memory and classification speed
#           with generated lists of 100 and 1,000 rules (options --rules N,N,
#           --min-time S, --max-time S, --doc-bytes N, --data DIR, --keep);
#   resources  bench_resources: id map completion, map, word list and
#           dictionary save/load, dictionary segmentation (options --repeat N,
#           --pairs N, --words N, --data DIR, --only NAME);
#   all     all three in that order, with their default options (the default).
# Usage: bench/run.sh [all | pdat [options] | engine [options] | resources [options]]
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  echo "usage: bench/run.sh [all | pdat [options] | engine [options] | resources [options]]" >&2
  exit 2
}

which="all"
if (($# > 0)); then
  which="$1"
  shift
fi
case "$which" in
  all) (($# == 0)) || usage ;;
  pdat | engine | resources) ;;
  *) usage ;;
esac

bash scripts/deps.sh build bench
bash bench/make_data.sh

cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_BENCH=ON \
  -DQX_BUILD_TESTS=OFF -DQX_SANITIZE=OFF >/dev/null

run() {
  local target="bench_$1"
  shift
  cmake --build build-bench -j 2 --target "$target"
  "./build-bench/bench/$target" "$@"
}

case "$which" in
  all)
    run pdat
    echo
    run engine
    echo
    run resources
    ;;
  *) run "$which" "$@" ;;
esac
