#!/usr/bin/env bash
# Builds the library as for a switch (HALBD_PLATFORM=external) against a throwaway platform library
# that defines the contracts of platform/ and nothing else: its C functions and objects are generated
# from the contract headers (each function fails), its C++ members are null_platform.cpp. The library links
# with --no-undefined, and its undefined dynamic symbols must be exactly the contracts' symbols
# plus those of the C and C++ run-time libraries.
# Usage: check_external.sh <source dir> <scratch dir> <C compiler> <C++ compiler>
set -euo pipefail
source_dir=$1 scratch=$2 cc=$3 cxx=$4
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$scratch"
mkdir -p "$scratch"

# Every function declared in the C contract headers, defined to fail, and every object, zeroed.
perl -0777 -ne '
  s{/\*.*?\*/}{}gs;
  s{//[^\n]*}{}g;
  while (/^(int|void)(\s+\w+\([^;{]*\));/mg) {
    print "$1$2 { ", ($1 eq "int" ? "return -1; " : ""), "}\n";
  }
  print "$1 = {};\n" while /^extern\s+([^"(;\n]+);/mg;' "$source_dir/platform/chip_sdk.h" "$source_dir/platform/limid.h" >"$scratch/functions.inc"
{
  echo '#include "chip_sdk.h"'
  echo '#include "limid.h"'
  cat "$scratch/functions.inc"
} >"$scratch/null_platform_functions.cpp"
stub=$scratch/libnull-platform.so
"$cxx" -std=c++17 -shared -fPIC -I"$source_dir/platform" -o "$stub" \
  "$scratch/null_platform_functions.cpp" "$here/null_platform.cpp" -Wl,--no-undefined
echo "platform stub: $(grep -c "[;}]$" "$scratch/functions.inc") C definitions generated from the contracts"

if ! cmake -S "$source_dir" -B "$scratch/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
    -DHALBD_PLATFORM=external -DHALBD_PLATFORM_LIBRARIES="$stub" >"$scratch/configure.log" 2>&1; then
  cat "$scratch/configure.log"
  exit 1
fi
cmake --build "$scratch/build" --target hal-switch-bd-ll-bcm
library=$(find "$scratch/build" -maxdepth 1 -name 'libhal-switch-bd-ll-bcm.so.*.*')

symbols() { nm -D "$@" | awk '{print $NF}' | LC_ALL=C sort -u; }
# The run-time libraries the compiler links a C++ shared library with.
runtime=()
for name in libstdc++.so.6 libm.so.6 libgcc_s.so.1 libc.so.6; do
  runtime+=("$("$cxx" -print-file-name=$name)")
done
symbols --undefined-only "$library" | sed 's/@.*//' | LC_ALL=C sort -u >"$scratch/undefined"
# The stub's own definitions; the template code it instantiates on the way (weak) is not a contract.
nm -D --defined-only "$stub" | awk '$2 ~ /^[TDBR]$/ {print $3}' | LC_ALL=C sort -u >"$scratch/platform"
symbols --defined-only "${runtime[@]}" | sed 's/@.*//' | LC_ALL=C sort -u >"$scratch/runtime"
# Weak references (the run-time's optional hooks) need no definition.
nm -D --undefined-only "$library" | awk '$1 == "w" {print $2}' | sed 's/@.*//' |
  LC_ALL=C sort -u >"$scratch/weak"

problems=0
unexplained=$(LC_ALL=C comm -23 "$scratch/undefined" <(LC_ALL=C sort -u "$scratch/platform" \
  "$scratch/runtime" "$scratch/weak"))
if [ -n "$unexplained" ]; then
  echo "undefined symbols neither in the platform contracts nor in the run-time libraries:"
  c++filt <<<"$unexplained"
  problems=1
fi
unused=$(LC_ALL=C comm -13 "$scratch/undefined" "$scratch/platform")
if [ -n "$unused" ]; then
  echo "platform contracts the library does not use:"
  c++filt <<<"$unused"
  problems=1
fi
needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
echo "needed libraries: $needed"
[[ " $needed " == *" libnull-platform.so "* ]] || { echo "the platform library is not needed"; problems=1; }
echo "undefined: $(wc -l <"$scratch/undefined") symbols, of which" \
     "$(LC_ALL=C comm -12 "$scratch/undefined" "$scratch/platform" | wc -l) platform contracts"
exit $problems
