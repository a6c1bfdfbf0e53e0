#!/usr/bin/env bash
# Writes the Chinese prose of two Debian packages to one UTF-8 file:
# the fortunes-zh texts (ANSI colour codes, carriage returns and "%"
# separators removed), then the zh_CN manual pages of manpages-zh rendered to
# plain text (left-adjusted, one continuous page, overstrikes removed, runs of
# blank lines squeezed). Deterministic: file lists are sorted and everything
# runs under LC_ALL=C (col under C.UTF-8, which it needs for non-ASCII text).
# Needs fortunes-zh, manpages-zh and groff-base (bash scripts/deps.sh prose
# installs them). Rendering takes about half a minute.
# Usage: scripts/make_prose.sh OUTPUT
set -euo pipefail
export LC_ALL=C

if (($# != 1)); then
  echo "usage: $0 OUTPUT" >&2
  exit 2
fi
out="$1"
repo_dir="$(cd "$(dirname "$0")/.." && pwd)"
for pkg in fortunes-zh manpages-zh groff-base; do
  if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
    echo "make_prose.sh: package $pkg is missing; run: bash scripts/deps.sh prose" >&2
    exit 1
  fi
done

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
