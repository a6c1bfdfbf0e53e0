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
#   codetran  bench_codetran: the translator's CodeToGBK and GBKToCode for
#           UTF-8 and BIG5 prose beside glibc iconv on the same text, and its
#           load time (options --repeat N, --data DIR, --trans-data DIR);
#   threads  bench_threads: the reentrant engine's documents per second
#           against threads sharing one rule set, then the reload of a
#           10,000-rule list under load (options --rules N, --max-threads N,
#           --min-time S, --runs N, --reload-rules N, --data DIR);
#   data    qxmakedata: writes the translator's data folder into a scratch
#           folder three times, printing its file counts once and the time of
#           each run (no options);
#   all     all six in that order, with their default options (the default).
# Usage: bench/run.sh [all | pdat [options] | engine [options] | resources [options] | codetran [options] | threads [options] | data]
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  echo "usage: bench/run.sh [all | pdat [options] | engine [options] | resources [options] | codetran [options] | threads [options] | data]" >&2
  exit 2
}

which="all"
if (($# > 0)); then
  which="$1"
  shift
fi
case "$which" in
  all) (($# == 0)) || usage ;;
  pdat | engine | resources | codetran | threads) ;;
  data) (($# == 0)) || usage ;;
  *) usage ;;
esac

bash scripts/deps.sh build bench opencc
[[ "$which" == data ]] || bash bench/make_data.sh

cmake -S . -B build-bench -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_BENCH=ON \
  -DQX_BUILD_TESTS=OFF -DQX_SANITIZE=OFF >/dev/null

run() {
  local target="bench_$1"
  shift
  cmake --build build-bench -j 2 --target "$target"
  "./build-bench/bench/$target" "$@"
}

# The qxdata target builds qxmakedata and the OpenCC text tables it reads.
run_data() {
  cmake --build build-bench -j 2 --target qxdata
  local out="build-bench/qxmakedata-bench"
  for i in 1 2 3; do
    rm -rf "$out"
    ./build-bench/tools/qxmakedata --opencc build-bench/opencc --out "$out" >"$out.txt"
    if ((i == 1)); then
      grep -v '^Build map success' "$out.txt" | grep -v '^total'
    fi
    echo "run $i: $(grep '^total' "$out.txt")"
  done
  rm -rf "$out" "$out.txt"
}

case "$which" in
  all)
    run pdat
    echo
    run engine
    echo
    run resources
    echo
    run codetran
    echo
    run threads
    echo
    run_data
    ;;
  data) run_data ;;
  *) run "$which" "$@" ;;
esac
