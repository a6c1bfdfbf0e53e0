#!/usr/bin/env bash
# Builds the benchmark data in bench/data/ from Debian packages, all in GBK:
#   words_all.txt   every word of the python3-jieba dictionary (dict.txt, lines
#                   "word freq tag") that converts to GBK, in dictionary order,
#                   without duplicates (first occurrence wins).
#   words_1k.txt, words_10k.txt, words_100k.txt
#                   the 1,000 / 10,000 / 100,000 most frequent of those words
#                   made of 2 to 4 Chinese characters (CJK U+4E00..U+9FFF),
#                   most frequent first, equal counts in dictionary order.
#   prose.txt       ~10 MiB of Chinese prose: the fortunes-zh texts (ANSI
#                   colour codes and "%" separators removed) followed by the
#                   zh_CN manual pages of manpages-zh rendered to plain text.
# A word that does not convert to GBK is dropped whole; prose characters that
# do not convert are dropped (iconv -c). Output is deterministic: file lists
# are sorted and everything runs under LC_ALL=C.
# Usage: bench/make_data.sh [--force]   (existing data is kept unless --force)
set -euo pipefail
export LC_ALL=C

bench_dir="$(cd "$(dirname "$0")" && pwd)"
repo_dir="$(dirname "$bench_dir")"
data_dir="$bench_dir/data"
outputs=(words_all.txt words_1k.txt words_10k.txt words_100k.txt prose.txt)
prose_target=$((10 * 1024 * 1024))

force=0
case "${1:-}" in
  "") ;;
  --force) force=1 ;;
  *)
    echo "usage: $0 [--force]" >&2
    exit 2
    ;;
esac

have_all_outputs() {
  local f
  for f in "${outputs[@]}"; do
    [[ -s "$data_dir/$f" ]] || return 1
  done
}

if ((force == 0)) && have_all_outputs; then
  echo "make_data.sh: $data_dir is up to date (use --force to rebuild)"
  exit 0
fi

bash "$repo_dir/scripts/deps.sh" words prose bench

mkdir -p "$data_dir"
tmp="$(mktemp -d "$data_dir/.tmp.XXXXXX")"
trap 'rm -rf "$tmp"' EXIT

# UTF-8 to GBK, dropping what does not convert. iconv -c exits with 1 when it
# dropped something; only a higher status is an error.
to_gbk() {
  local rc=0
  iconv -c -f UTF-8 -t GBK || rc=$?
  ((rc <= 1))
}

# package_files PACKAGE PATTERN: the package's regular files, sorted.
source "$repo_dir/scripts/package_files.sh"

# ---- words -------------------------------------------------------------------

make_words() {
  local dict
  dict="$(package_files python3-jieba '/jieba/dict\.txt$' | sed -n 1p)"
  if [[ -z "$dict" ]]; then
    echo "make_data.sh: jieba dict.txt not found" >&2
    exit 1
  fi
  echo "make_data.sh: words from $dict"

  # Convert the word column line by line (iconv -c keeps every newline), then
  # convert back: a word converted whole exactly when the round trip gives it
  # back unchanged.
  cut -d ' ' -f 1 "$dict" >"$tmp/words.u8"
  to_gbk <"$tmp/words.u8" >"$tmp/words.gbk"
  iconv -f GBK -t UTF-8 <"$tmp/words.gbk" >"$tmp/words.rt"

  # Table: GBK word <TAB> frequency <TAB> 1 if 2-4 CJK characters <TAB> line.
  awk -v dict="$dict" -v rt="$tmp/words.rt" -v gbk="$tmp/words.gbk" '
    BEGIN {
      han = "[\344-\351][\200-\277][\200-\277]"
      short_han = "^" han han "(" han ")?(" han ")?$"
      while ((getline line < dict) > 0) {
        n++
        if ((getline back < rt) <= 0 || (getline word < gbk) <= 0) {
          print "make_data.sh: line count mismatch" > "/dev/stderr"
          exit 1
        }
        split(line, field, " ")
        if (field[1] == "" || field[1] != back || (word in seen)) continue
        seen[word] = 1
        printf "%s\t%d\t%d\t%d\n", word, field[2] + 0, field[1] ~ short_han, n
      }
    }' >"$tmp/table.tsv"

  cut -f 1 "$tmp/table.tsv" >"$tmp/words_all.txt"

  awk -F '\t' '$3 == 1' "$tmp/table.tsv" |
    sort -t "$(printf '\t')" -k 2,2nr -k 4,4n >"$tmp/ranked.tsv"
  local entry name count
  for entry in 1k:1000 10k:10000 100k:100000; do
    name="${entry%%:*}"
    count="${entry##*:}"
    awk -F '\t' -v n="$count" 'NR <= n { print $1 }' "$tmp/ranked.tsv" \
      >"$tmp/words_$name.txt"
    if (($(wc -l <"$tmp/words_$name.txt") != count)); then
      echo "make_data.sh: fewer than $count words of 2-4 characters" >&2
      exit 1
    fi
  done
}

# ---- prose -------------------------------------------------------------------

make_prose() {
  bash "$repo_dir/scripts/make_prose.sh" "$tmp/prose.u8"
  to_gbk <"$tmp/prose.u8" >"$tmp/prose.base"

  # The packages hold about 6 MB of GBK text: the whole text is repeated
  # until it reaches the target, then cut at the last line end before it.
  local base_size
  base_size="$(stat -c %s "$tmp/prose.base")"
  : >"$tmp/prose.rep"
  while (($(stat -c %s "$tmp/prose.rep") < prose_target)); do
    cat "$tmp/prose.base" >>"$tmp/prose.rep"
  done
  local lines
  lines="$(head -c "$prose_target" "$tmp/prose.rep" | wc -l)"
  head -n "$lines" "$tmp/prose.rep" >"$tmp/prose.txt"
  echo "make_data.sh: prose base $base_size bytes, repeated to" \
    "$(stat -c %s "$tmp/prose.txt") bytes"
}

make_words
make_prose

for f in "${outputs[@]}"; do
  mv -f "$tmp/$f" "$data_dir/$f"
done
(cd "$data_dir" && wc -lc "${outputs[@]}")
