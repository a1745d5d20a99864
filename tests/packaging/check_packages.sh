#!/usr/bin/env bash
# Makes the build's Debian packages (cpack -G DEB) and checks them.
#   check_packages.sh host <build dir> <scratch> <source dir> <version> <example dir> <C++ compiler>
#     metadata and file list of each package (dpkg-deb -f, -c), lintian without error, then the
#     packages unpacked into a scratch root (dpkg-deb -x): halbd-sim runs from it, and the API
#     example builds and runs against it as docs/USING.md says (find_package and pkg-config).
#   check_packages.sh target <build dir> <scratch> <source dir> <version> <architecture>
#     metadata of each package, the library inside is a 32-bit big-endian PowerPC object, lintian
#     without error.
set -euo pipefail
mode=$1 build_dir=$2 scratch=$3 source_dir=$4 version=$5
major=${version%%.*}
library=libhal-switch-bd-ll-bcm$major development=libhal-switch-bd-ll-bcm-dev sim=halbd-sim
problems=0
fail() {
  echo "FAILED: $*" >&2
  problems=$((problems + 1))
}

rm -rf "$scratch"
mkdir -p "$scratch"
if ! cpack -G DEB --config "$build_dir/CPackConfig.cmake" -B "$scratch/debs" \
    >"$scratch/cpack.log" 2>&1; then
  cat "$scratch/cpack.log"
  exit 1
fi
deb_of() { echo "$scratch/debs/${1}_${version}_$architecture.deb"; }
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build_dir/CMakeCache.txt"; }
libdir=usr/$(cached CMAKE_INSTALL_LIBDIR)

# field <package> <name> <expected regex>
field() {
  local value
  value=$(dpkg-deb -f "$(deb_of "$1")" "$2")
  [[ $value =~ $3 ]] || fail "$1: $2 is '$value', expected /$3/"
}

if [ "$mode" = target ]; then
  architecture=$6
  for package in $library $development $sim; do
    [ -f "$(deb_of "$package")" ] || { fail "no package $(deb_of "$package")"; continue; }
    field "$package" Architecture "^$architecture$"
    field "$package" Version "^$version$"
  done
  field "$library" Depends "libc6 \(>= [0-9.-]+\).*libstdc\+\+6 \(>= [0-9.-]+\)"
  dpkg-deb -x "$(deb_of "$library")" "$scratch/root"
  header=$(readelf -h "$scratch/root/$libdir/libhal-switch-bd-ll-bcm.so.$version")
  for expected in 'Class: +ELF32' 'Data: +.*big endian' 'Machine: +PowerPC$' 'Type: +DYN'; do
    grep -Eq "^ +$expected" <<<"$header" || fail "the packaged library is not '$expected'"
  done
  lintian --fail-on error --tag-display-limit 0 "$scratch"/debs/*.deb || fail "lintian found errors"
  [ $problems -eq 0 ] && echo "the $architecture packages carry a 32-bit big-endian PowerPC library"
  exit $((problems > 0))
fi

example_dir=$6 cxx=$7
architecture=$(dpkg --print-architecture)

# ---- Metadata ----------------------------------------------------------------------------------
for package in $library $development $sim; do
  field "$package" Package "^$package$"
  field "$package" Version "^$version$"
  field "$package" Architecture "^$architecture$"
done
# The run-time dependencies come from dpkg-shlibdeps, the packages' own from their components.
for dependency in "libc6 \(>= " "libstdc\+\+6 \(>= " "$sim \(= $version\)"; do
  field "$library" Depends "(^|, )$dependency"
done
for dependency in "libc6 \(>= " "libstdc\+\+6 \(>= " "$library \(= $version\)"; do
  field "$sim" Depends "(^|, )$dependency"
done
field "$development" Depends "^$library \(= $version\)$"
field "$library" Section '^libs$'

# ---- File lists --------------------------------------------------------------------------------
# expected_files <package>: every file and link the package must carry, nothing more.
expected_files() {
  local lib=$libdir doc=usr/share/doc/$1 include=usr/include/halbd header configuration
  configuration=$(cached CMAKE_BUILD_TYPE)
  configuration=${configuration,,}
  echo "$doc/copyright"
  echo "$doc/changelog.gz"
  case $1 in
    "$library")
      echo "$lib/libhal-switch-bd-ll-bcm.so.$major"
      echo "$lib/libhal-switch-bd-ll-bcm.so.$version" ;;
    "$development")
      echo "$lib/libhal-switch-bd-ll-bcm.so"
      echo "$lib/pkgconfig/hal-switch-bd-ll-bcm.pc"
      for name in halbd-config halbd-config-version halbd-targets halbd-targets-$configuration; do
        echo "$lib/cmake/halbd/$name.cmake"
      done
      for header in "$source_dir"/include/*.h; do echo "$include/${header##*/}"; done
      for header in "$source_dir"/platform/*.h; do echo "$include/platform/${header##*/}"; done ;;
    "$sim")
      echo "usr/bin/halbd-sim"
      echo "usr/share/man/man1/halbd-sim.1.gz"
      echo "$lib/libhal-sim-platform.so"
      echo "$lib/libhal-sim-platform.so.$major"
      echo "$lib/libhal-sim-platform.so.$version"
      echo "$lib/pkgconfig/hal-sim-platform.pc"
      echo "$lib/cmake/halbd/halbd-sim-targets.cmake"
      echo "$lib/cmake/halbd/halbd-sim-targets-$configuration.cmake"
      for header in "$source_dir"/sim/include/sim/*.h; do echo "$include/sim/${header##*/}"; done
      for guide in USING PITFALLS FRAME-WALK; do echo "$doc/$guide.md.gz"; done
      for scenario in "$source_dir"/examples/*.scn; do echo "$doc/examples/${scenario##*/}"; done
      for scenario in "$source_dir"/examples/pitfalls/*.scn; do
        echo "$doc/examples/pitfalls/${scenario##*/}"
      done
      echo "$doc/examples/provider-edge-in.pcap" ;;
  esac
}
for package in $library $development $sim; do
  if ! diff <(expected_files "$package" | LC_ALL=C sort) \
      <(dpkg-deb -c "$(deb_of "$package")" | awk '$1 !~ /^d/ {print $6}' | sed 's|^\./||' |
        LC_ALL=C sort) >"$scratch/$package.diff"; then
    fail "$package: file list differs ('<' missing, '>' unexpected):"
    cat "$scratch/$package.diff" >&2
  fi
done

# ---- lintian -----------------------------------------------------------------------------------
if ! lintian --fail-on error --tag-display-limit 0 "$scratch"/debs/*.deb >"$scratch/lintian.log" 2>&1; then
  fail "lintian found errors"
fi
echo "== lintian: $(grep -c '^E:' "$scratch/lintian.log" || true) errors," \
     "$(grep -c '^W:' "$scratch/lintian.log" || true) warnings"
cat "$scratch/lintian.log"

# ---- Unpacked --------------------------------------------------------------------------------
root=$scratch/root
for package in $library $development $sim; do
  dpkg-deb -x "$(deb_of "$package")" "$root"
done
# The example the manual page names, from where the package puts it.
"$root/usr/bin/halbd-sim" "$root/usr/share/doc/$sim/examples/access-switch.scn" >/dev/null ||
  fail "halbd-sim does not run the packaged example from the unpacked packages"
zcat "$root/usr/share/man/man1/halbd-sim.1.gz" | grep -q "/usr/share/doc/$sim/USING.md.gz" ||
  fail "the manual page does not name the installed guide"
"$source_dir/tests/install/consumer.sh" prefix "$root/usr" "$scratch/consumer" \
  "$example_dir" "$cxx" || fail "the API example does not build or run against the packages"

[ $problems -eq 0 ] && echo "the $architecture packages are complete, pass lintian and serve a module"
exit $((problems > 0))
