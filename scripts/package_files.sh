# Sourced by the data scripts: package_files PACKAGE PATTERN prints the
# regular files (not symlinks) a Debian package installed whose paths match
# the extended regular expression PATTERN, sorted.
package_files() {
  local pkg="$1" pattern="$2" f
  dpkg-query -L "$pkg" | grep -E "$pattern" | sort | while IFS= read -r f; do
    if [[ -f "$f" && ! -L "$f" ]]; then
      printf '%s\n' "$f"
    fi
  done
}
