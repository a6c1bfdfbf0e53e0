#!/usr/bin/env bash
# Writes the Chinese prose of two Debian packages to one UTF-8 file:
# the fortunes-zh texts (ANSI colour codes, carriage returns and "%"
# separators removed), then the zh_CN manual pages of manpages-zh rendered to
# plain text (left-adjusted, one continuous page, overstrikes removed, runs of
# blank lines squeezed). Deterministic: file lists are sorted and everything
# runs under LC_ALL=C (col under C.UTF-8, which it needs for non-ASCII text).
# Installs the packages when missing. Rendering takes about half a minute.
# Usage: scripts/make_prose.sh OUTPUT
set -euo pipefail
export LC_ALL=C

if (($# != 1)); then
  echo "usage: $0 OUTPUT" >&2
  exit 2
fi
out="$1"
repo_dir="$(cd "$(dirname "$0")/.." && pwd)"
bash "$repo_dir/scripts/deps.sh" prose

# package_files PACKAGE PATTERN: the package's regular files, sorted.
source "$repo_dir/scripts/package_files.sh"

render_page() {
  { printf '.ad l\n'; zcat "$1"; } |
    preconv -e UTF-8 |
    groff -mandoc -Tutf8 -rLL=78n -rcR=1 -P-c 2>/dev/null |
    LC_ALL=C.UTF-8 col -bx
}

tmp="$(mktemp "$out.XXXXXX")"
page="$(mktemp "$out.page.XXXXXX")"
trap 'rm -f "$tmp" "$page"' EXIT

while IFS= read -r f; do
  sed -e 's/\x1b\[[0-9;]*m//g' -e 's/\r$//' "$f" | awk '$0 != "%"' >>"$tmp"
done < <(package_files fortunes-zh '^/usr/share/games/fortunes/[^/]+$' | grep -v '\.dat$')

pages=0
skipped=0
while IFS= read -r f; do
  if render_page "$f" >"$page"; then
    cat -s "$page" >>"$tmp"
    pages=$((pages + 1))
  else
    skipped=$((skipped + 1))
  fi
done < <(package_files manpages-zh '^/usr/share/man/zh_CN/.*\.gz$')

mv -f "$tmp" "$out"
echo "make_prose.sh: $(stat -c %s "$out") bytes ($pages manual pages, $skipped skipped) in $out"
