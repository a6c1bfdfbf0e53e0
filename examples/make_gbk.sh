#!/usr/bin/env bash
# Regenerates the GBK rule list and sample documents from their UTF-8 sources:
#   src/rules.utf8.txt -> rules.txt
#   src/docs/*.txt     -> docs/*.txt
# The library reads GBK only; the UTF-8 copies are the ones to edit. iconv
# refuses a character that GBK lacks, so a bad edit fails here, not later.
# Usage: bash examples/make_gbk.sh
set -euo pipefail
cd "$(dirname "$0")"

to_gbk() {
  local tmp
  tmp="$(mktemp "$2.XXXXXX")"
  if ! iconv -f UTF-8 -t GBK "$1" >"$tmp"; then
    rm -f "$tmp"
    echo "make_gbk.sh: $1 is not convertible to GBK" >&2
    exit 1
  fi
  chmod 644 "$tmp"
  mv "$tmp" "$2"
}

to_gbk src/rules.utf8.txt rules.txt

mkdir -p docs
rm -f docs/*.txt
for src in src/docs/*.txt; do
  to_gbk "$src" "docs/$(basename "$src")"
done
echo "make_gbk.sh: rules.txt and $(ls docs/*.txt | wc -l) documents written"
