#!/usr/bin/env bash
# Builds the real-text corpus of the translator tests in DIR:
#   prose.u8      Chinese prose (fortunes-zh and the zh_CN manual pages), UTF-8;
#   prose.big5    its traditional form (opencc -c s2t) in BIG5, characters BIG5
#                 cannot hold dropped (iconv -c);
#   prose.t2s.u8  OpenCC's simplified form of that BIG5 text (opencc -c t2s),
#                 which the translator's BIG5 -> GBK output is compared with.
# Needs opencc and the prose packages (bash scripts/deps.sh opencc prose);
# CMake builds the corpus only when they are there. Deterministic.
# Usage: tests/make_corpus.sh DIR
set -euo pipefail
export LC_ALL=C

(($# == 1)) || { echo "usage: $0 DIR" >&2; exit 2; }
dir="$1"
repo_dir="$(cd "$(dirname "$0")/.." && pwd)"
mkdir -p "$dir"

bash "$repo_dir/scripts/make_prose.sh" "$dir/prose.u8"
opencc -c s2t -i "$dir/prose.u8" -o "$dir/prose.s2t.u8"
# iconv -c exits with 1 when it dropped something; only more is an error.
iconv -c -f UTF-8 -t BIG5 "$dir/prose.s2t.u8" >"$dir/prose.big5" || (($? == 1))
iconv -f BIG5 -t UTF-8 "$dir/prose.big5" >"$dir/prose.big5.u8"
opencc -c t2s -i "$dir/prose.big5.u8" -o "$dir/prose.t2s.u8"
rm -f "$dir/prose.s2t.u8" "$dir/prose.big5.u8"

echo "make_corpus.sh: $(stat -c %s "$dir/prose.u8") bytes of prose in $dir"
