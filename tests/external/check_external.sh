#!/usr/bin/env bash
# Builds the library as for a switch (HALBD_PLATFORM=external) against a throwaway platform library
# that defines the contracts of platform/ and nothing else, generated from the contract headers
# (define_contracts.pl). The library links with --no-undefined, and its undefined dynamic symbols
# must be exactly the contracts' symbols plus those of the C and C++ run-time libraries.
# Usage: check_external.sh <source dir> <scratch dir> <C compiler> <C++ compiler>
set -euo pipefail
source_dir=$1 scratch=$2 cc=$3 cxx=$4
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$scratch"
mkdir -p "$scratch"

# The stub: every contract of platform/ defined, each function aborting (nothing here ever runs).
{
  echo '#include <cstdlib>'
  for header in "$source_dir"/platform/*.h; do echo "#include \"${header##*/}\""; done
  perl "$here/define_contracts.pl" "$source_dir"/platform/*.h
} >"$scratch/null_platform.cpp"
stub=$scratch/libnull-platform.so
"$cxx" -std=c++17 -shared -fPIC -I"$source_dir/platform" -o "$stub" "$scratch/null_platform.cpp" \
  -Wl,--no-undefined
echo "platform stub: $(grep -c 'abort\|= {}' "$scratch/null_platform.cpp") definitions generated from the contracts"

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
