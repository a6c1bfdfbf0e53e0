#!/usr/bin/env bash
# Builds the library, the qxclassify tool and the translator's data folder
# (Release, in build/) and classifies the bundled sample documents with the
# bundled rule list twice:
#   1. the GBK documents (examples/docs), the report converted to UTF-8;
#   2. their UTF-8 sources (examples/src/docs) with --encoding utf8: the
#      library translates them to GBK and its results back to UTF-8, using
#      the data folder build/Data (made from OpenCC's tables).
# Usage: bash scripts/run_examples.sh
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh build opencc

# The test suite needs GoogleTest; build/ is shared with scripts/test.sh, so
# switch the tests off only when GoogleTest is missing.
tests=ON
if ! dpkg-query -W -f='${Status}' libgtest-dev 2>/dev/null | grep -q "install ok installed"; then
  tests=OFF
fi

jobs="$(nproc 2>/dev/null || echo 2)"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_TESTS="$tests" >/dev/null
cmake --build build -j "$jobs" --target qxclassify qxdata

echo
echo "######## Run 1 of 2: GBK documents, report converted to UTF-8"
echo "######## build/tools/qxclassify --utf8 examples/rules.txt examples/docs"
echo
build/tools/qxclassify --utf8 examples/rules.txt examples/docs

echo
echo "######## Run 2 of 2: the same documents in UTF-8, translated by the library"
echo "######## (the translator drops tabs, so the detail lines run together)"
echo "######## build/tools/qxclassify --encoding utf8 --data build examples/rules.txt examples/src/docs"
echo
build/tools/qxclassify --encoding utf8 --data build examples/rules.txt examples/src/docs
