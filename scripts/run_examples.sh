#!/usr/bin/env bash
# Builds the library and the qxclassify tool (Release, in build/) and
# classifies the bundled sample documents with the bundled rule list,
# printing the report in UTF-8.
# Usage: bash scripts/run_examples.sh
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh build

# The test suite needs GoogleTest; build/ is shared with scripts/test.sh, so
# switch the tests off only when GoogleTest is missing.
tests=ON
if ! dpkg-query -W -f='${Status}' libgtest-dev 2>/dev/null | grep -q "install ok installed"; then
  tests=OFF
fi

jobs="$(nproc 2>/dev/null || echo 2)"
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_TESTS="$tests" >/dev/null
cmake --build build -j "$jobs" --target qxclassify
echo
build/tools/qxclassify --utf8 examples/rules.txt examples/docs
