#!/usr/bin/env bash
# Installs the missing Debian packages of the named groups of packages.txt (apt-get, needs root).
#   scripts/install-packages.sh GROUP...         e.g. scripts/install-packages.sh build tests
#   scripts/install-packages.sh --list GROUP...  prints the groups' packages, one a line
# Progress and errors go to standard error, so that a caller's standard output stays its own.
# Exit status: 0 when every package is installed at the end; 1 when one is missing and cannot be
# installed (not root, or apt-get failed), naming the packages; 2 for an unknown group.
set -uo pipefail
list_file=$(cd "$(dirname "$0")/.." && pwd)/packages.txt

list_only=0
if [ "${1:-}" = --list ]; then
  list_only=1
  shift
fi
[ $# -gt 0 ] || { echo "usage: $0 [--list] GROUP..." >&2; exit 2; }

packages=()
for group in "$@"; do
  line=$(grep -E "^$group:" "$list_file") || {
    echo "error: no group '$group' in $list_file" >&2
    exit 2
  }
  read -r -a words <<<"${line#*:}"
  packages+=("${words[@]}")
done

if [ $list_only -eq 1 ]; then
  printf '%s\n' "${packages[@]}"
  exit 0
fi

missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}" >&2
if [ "$(id -u)" -ne 0 ]; then
  echo "error: missing packages and not root; install them: ${missing[*]}" >&2
  exit 1
fi
if ! apt-get update -qq >&2 ||
    ! DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
      "${missing[@]}" >/dev/null; then
  echo "error: could not install ${missing[*]}" >&2
  exit 1
fi
