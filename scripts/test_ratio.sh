#!/usr/bin/env bash
# Prints the size of the test suite against the code it tests, in lines:
# tests/ (C++, CMake and shell; golden files and fuzz seeds excluded) against
# Src/ + tools/ + python/ (the library, its tools and binding code). The
# house rule keeps the ratio between 0.25 and 0.35; the exit status is 1
# outside that range.
# Usage: scripts/test_ratio.sh
set -euo pipefail
cd "$(dirname "$0")/.."

count() {
  git ls-files -co --exclude-standard -- "$@" |
    grep -E '\.(cpp|h|hpp|c|py|cmake|sh|txt|in)$' |
    grep -v '^tests/golden/' |
    while IFS= read -r f; do [[ -f "$f" ]] && cat "$f"; done | wc -l
}

tests=$(count tests)
code=$(count Src tools python)
ratio=$(awk -v t="$tests" -v c="$code" 'BEGIN { printf "%.3f", t / c }')
echo "tests/ ${tests} lines, Src/ + tools/ + python/ ${code} lines: ratio ${ratio}"
awk -v t="$tests" -v c="$code" 'BEGIN { exit !(t >= 0.25 * c && t <= 0.35 * c) }'
