#!/usr/bin/env bash
# Builds what is needed and runs halbd-sim on an example scenario (default: the access switch),
# showing what the bridge library does to the simulated chip.
#   ./run-example.sh [SCENARIO]      e.g. ./run-example.sh examples/lag-uplink.scn
# On a fresh Debian machine it first installs what is missing (needs root for apt-get).
set -euo pipefail
cd "$(dirname "$0")"

build_dir=${BUILD_DIR:-build}
scenario=${1:-examples/access-switch.scn}
# The same set as run-tests.sh, so that both commands share one configured build directory.
packages=(g++ cmake ninja-build libgtest-dev libgmock-dev binutils)

missing=()
for package in "${packages[@]}"; do
  dpkg -s "$package" >/dev/null 2>&1 || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}" >&2
  if [ "$(id -u)" -ne 0 ]; then
    echo "error: missing packages and not root; install them: ${missing[*]}" >&2
    exit 1
  fi
  apt-get update -qq
  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
fi

# Build output goes to stderr, so that standard output is the scenario's alone.
if [ ! -f "$build_dir/build.ninja" ]; then
  cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
fi
cmake --build "$build_dir" --target halbd-sim >&2

exec "$build_dir/tools/halbd-sim" "$scenario"
