#!/usr/bin/env bash
# Builds what is needed and runs halbd-sim on an example scenario (default: the access switch),
# showing what the bridge library does to the simulated chip.
#   ./run-example.sh [SCENARIO]      e.g. ./run-example.sh examples/lag-uplink.scn
# On a fresh Debian machine it first installs what is missing (needs root for apt-get).
set -euo pipefail
cd "$(dirname "$0")"

build_dir=${BUILD_DIR:-build}
scenario=${1:-examples/access-switch.scn}
# The build group of packages.txt, which run-tests.sh installs too: both commands share one
# configured build directory, and the example's halbd-sim has line editing and captures.
scripts/install-packages.sh build || exit 1

# Build output goes to stderr, so that standard output is the scenario's alone.
if [ ! -f "$build_dir/build.ninja" ]; then
  cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2
fi
cmake --build "$build_dir" --target halbd-sim >&2

exec "$build_dir/tools/halbd-sim" "$scenario"
