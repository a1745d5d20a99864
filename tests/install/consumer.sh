#!/usr/bin/env bash
# Builds and runs the API example as a HAL module would, following docs/USING.md alone: the
# project is cmake_minimum_required, project and the guide's CMake blocks taken verbatim, and the
# pkg-config build is the guide's command line.
#   consumer.sh prefix <prefix> <scratch> <example dir> <C++ compiler> [toolchain [emulator...]]
#       against an installed tree or unpacked packages: find_package, then pkg-config
#   consumer.sh subdirectory <library source dir> <scratch> <example dir> <C++ compiler>
#       with the library's sources inside the module's tree: add_subdirectory
set -euo pipefail
mode=$1 from=$2 scratch=$3 example_dir=$4 cxx=$5
toolchain=${6:-}
emulator=("${@:7}")
guide=$(cd "$(dirname "$0")/../../docs" && pwd)/USING.md

# The guide's fenced blocks of a language whose text matches a pattern, in order.
guide_blocks() {
  local language=$1 pattern=$2 text
  text=$(awk -v language="$language" -v pattern="$pattern" '
    $0 == "```" language { inside = 1; block = ""; next }
    /^```$/ && inside { inside = 0; if (block ~ pattern) printf "%s", block; next }
    inside { block = block $0 "\n" }' "$guide")
  if [ -z "$text" ]; then
    echo "docs/USING.md: no $language block matching '$pattern'" >&2
    return 1
  fi
  printf '%s\n' "$text"
}

# A module's project directory: the example's sources and a CMakeLists.txt from the guide.
write_project() {
  local dir=$1 pattern=$2
  mkdir -p "$dir"
  cp "$example_dir"/*.cpp "$dir/"
  {
    printf 'cmake_minimum_required(VERSION 3.22)\nproject(my-hal-module LANGUAGES CXX)\n'
    guide_blocks cmake "$pattern"
    guide_blocks cmake 'target_link_libraries'
  } >"$dir/CMakeLists.txt"
}

build_and_run() {
  local dir=$1
  shift
  if ! cmake -S "$dir" -B "$dir/build" -G Ninja -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" "$@" \
      >"$dir/configure.log" 2>&1; then
    cat "$dir/configure.log"
    return 1
  fi
  cmake --build "$dir/build"
  "${emulator[@]}" "$dir/build/my-hal-module" >/dev/null
}

rm -rf "$scratch"
mkdir -p "$scratch"

if [ "$mode" = subdirectory ]; then
  echo "== add_subdirectory(halbd)"
  write_project "$scratch/module" 'add_subdirectory\(halbd\)'
  ln -s "$from" "$scratch/module/halbd"
  build_and_run "$scratch/module" -DCMAKE_CXX_COMPILER="$cxx"
  echo "the API example builds and runs with the library's tree inside the module's"
  exit 0
fi

prefix=$from
echo "== find_package(halbd COMPONENTS sim) in $prefix"
write_project "$scratch/module" 'find_package\(halbd'
if [ -n "$toolchain" ]; then
  # A cross toolchain searches packages inside the target's sysroot only: name the package directly.
  build_and_run "$scratch/module" -DCMAKE_TOOLCHAIN_FILE="$toolchain" \
    -Dhalbd_DIR="$(dirname "$(find "$prefix" -name halbd-config.cmake)")"
else
  build_and_run "$scratch/module" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix"
fi

echo "== pkg-config hal-switch-bd-ll-bcm hal-sim-platform in $prefix"
PKG_CONFIG_LIBDIR=$(dirname "$(find "$prefix" -name hal-switch-bd-ll-bcm.pc)")
export PKG_CONFIG_LIBDIR
export PKG_CONFIG_PATH=
command=$(guide_blocks sh 'pkg-config')
mkdir -p "$scratch/pkg-config"
cp "$example_dir"/*.cpp "$scratch/pkg-config/"
# The guide's command, with this build's compiler for its "c++".
(cd "$scratch/pkg-config" && eval "\"\$cxx\" -Wall -Wextra -Werror ${command#c++ }")
"${emulator[@]}" "$scratch/pkg-config/my-hal-module" >/dev/null

echo "the API example builds and runs against $prefix (CMake package and pkg-config)"
