#!/usr/bin/env bash
# Installs the build tree's package under a scratch prefix, one component at a time, and builds and
# runs the API example against it twice: as a CMake project (find_package) and with the flags that
# pkg-config gives. Nothing of the source tree but the example's sources is used.
# Usage: check_install.sh <build dir> <scratch dir> <example dir> <C++ compiler> [toolchain file
#        [emulator command...]]
set -euo pipefail
build_dir=$1
scratch=$2
example_dir=$3
cxx=$4
toolchain=${5:-}
emulator=("${@:6}")

prefix=$scratch/prefix
rm -rf "$scratch"
mkdir -p "$scratch"

for component in library sim; do
  cmake --install "$build_dir" --prefix "$prefix" --component "$component" >/dev/null
done

echo "== find_package(halbd COMPONENTS sim)"
configure=(cmake -S "$(dirname "$0")" -B "$scratch/cmake-consumer" -G Ninja
           -DCMAKE_PREFIX_PATH="$prefix" -DHALBD_EXAMPLE_DIR="$example_dir")
if [ -n "$toolchain" ]; then
  # A cross toolchain searches packages inside the target's sysroot only: name the package directly.
  configure+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain"
              -Dhalbd_DIR="$(dirname "$(find "$prefix" -name halbd-config.cmake)")")
else
  configure+=(-DCMAKE_CXX_COMPILER="$cxx")
fi
if ! "${configure[@]}" >"$scratch/cmake-consumer.log" 2>&1; then
  cat "$scratch/cmake-consumer.log"
  exit 1
fi
cmake --build "$scratch/cmake-consumer"
"${emulator[@]}" "$scratch/cmake-consumer/api_example" >/dev/null

echo "== pkg-config hal-switch-bd-ll-bcm hal-sim-platform"
PKG_CONFIG_LIBDIR=$(dirname "$(find "$prefix" -name hal-switch-bd-ll-bcm.pc)")
export PKG_CONFIG_LIBDIR
export PKG_CONFIG_PATH=
libdir=$(pkg-config --variable=libdir hal-switch-bd-ll-bcm)
# shellcheck disable=SC2046 # the flags are separate words
"$cxx" -std=c++17 -Wall -Wextra -Werror "$example_dir"/*.cpp -o "$scratch/pkg-config-consumer" \
  $(pkg-config --cflags --libs hal-switch-bd-ll-bcm hal-sim-platform) -Wl,-rpath,"$libdir"
"${emulator[@]}" "$scratch/pkg-config-consumer" >/dev/null

echo "the installed package builds and runs the API example (CMake package and pkg-config)"
