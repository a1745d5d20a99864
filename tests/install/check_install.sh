#!/usr/bin/env bash
# Installs the build tree under a scratch prefix, one component at a time, and builds and runs the
# API example against it as docs/USING.md says (consumer.sh). Nothing of the source tree but the
# example's sources and the guide is used.
# Usage: check_install.sh <build dir> <scratch dir> <example dir> <C++ compiler> [toolchain file
#        [emulator command...]]
set -euo pipefail
build_dir=$1 scratch=$2
prefix=$scratch/prefix
rm -rf "$scratch"
for component in library development sim; do
  cmake --install "$build_dir" --prefix "$prefix" --component "$component" >/dev/null
done
"$(dirname "$0")/consumer.sh" prefix "$prefix" "$scratch/consumer" "${@:3}"
