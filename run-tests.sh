#!/usr/bin/env bash
# Builds the library, the simulated platform and the tests, and runs every test.
# On a fresh Debian machine it first installs what is missing (needs root for apt-get).
set -euo pipefail
cd "$(dirname "$0")"

build_dir=${BUILD_DIR:-build}
packages=(g++ cmake ninja-build libgtest-dev libgmock-dev binutils)

missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then
    echo "error: missing packages and not root; install them: ${missing[*]}" >&2
    exit 1
  fi
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build "$build_dir"
ctest --test-dir "$build_dir" --output-on-failure -j"$(nproc)"
