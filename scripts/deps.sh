#!/usr/bin/env bash
# Installs the Debian packages a task needs, only when they are missing.
# Usage: scripts/deps.sh GROUP...   (groups: build, test, bench, words, prose, opencc)
set -euo pipefail

declare -A GROUP_PACKAGES=(
  [build]="cmake g++ make libc6-dev"
  [test]="googletest libgtest-dev libgmock-dev pkgconf"
  [bench]="libbenchmark-dev libhyperscan-dev libmarisa-dev pkgconf"
  [opencc]="opencc"
  [words]="python3-jieba"
  [prose]="manpages-zh fortunes-zh groff-base bsdextrautils gzip libc-bin"
)

wanted=()
for group in "$@"; do
  if [[ -z "${GROUP_PACKAGES[$group]+x}" ]]; then
    echo "deps.sh: unknown group '$group'" >&2
    exit 2
  fi
  for pkg in ${GROUP_PACKAGES[$group]}; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
      wanted+=("$pkg")
    fi
  done
done

((${#wanted[@]} == 0)) && exit 0

echo "Installing missing packages: ${wanted[*]}"
SUDO=""
if [[ "$(id -u)" != 0 ]]; then
  SUDO="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${wanted[@]}"
