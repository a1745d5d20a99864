#!/usr/bin/env bash
# Builds and tests the project on this host and on the switch's processor, and runs the static
# analysis. On a fresh Debian machine it first installs what is missing (apt-get, needs root).
#   ./run-tests.sh [host] [target] [analysis] [reliability]     (default: all four)
# - host:     build in $BUILD_DIR (default build) and run the suite with ctest.
# - target:   cross-build for 32-bit big-endian PowerPC in $TARGET_BUILD_DIR (default build-ppc)
#             and run the same suite under qemu-user. Skipped, saying why, only where the cross
#             packages cannot be installed.
# - analysis: clang-tidy (.clang-tidy) and cppcheck (.cppcheck-suppressions) over the project's
#             sources in the host build's compile database; any finding fails.
# - reliability: tests/reliability/run-reliability.sh: the suite under ASan+UBSan, the TSan test
#             of concurrent first use, and a bounded fuzz run (FUZZ_SECONDS, default 60).
# The last line is the total over both suites, the two analysers and the reliability runs:
# "total: N passed, M failed".
set -uo pipefail
cd "$(dirname "$0")" || exit 1
root=$PWD

build_dir=${BUILD_DIR:-build}
target_build_dir=${TARGET_BUILD_DIR:-build-ppc}
jobs=${JOBS:-$(nproc)}
toolchain=$root/cmake/powerpc-linux-gnu.cmake

run_host=0 run_target=0 run_analysis=0 run_reliability=0
[ $# -eq 0 ] && set -- host target analysis reliability
for stage in "$@"; do
  case $stage in
    host) run_host=1 ;;
    target) run_target=1 ;;
    analysis) run_analysis=1 ;;
    reliability) run_reliability=1 ;;
    *) echo "usage: $0 [host] [target] [analysis] [reliability]" >&2; exit 2 ;;
  esac
done

summary=()
passed=0
failed=0
section() { printf '\n== %s\n' "$*"; }

# ---- Packages ------------------------------------------------------------------------------------
# The groups of packages.txt. The host's are always needed (the analysis reads the host build);
# the target's may fail to install, which only skips the target run.
required=(build tests)
[ $run_analysis -eq 1 ] && required+=(analysis)
scripts/install-packages.sh "${required[@]}" || exit 1

target_skip_reason=""
if [ $run_target -eq 1 ]; then
  scripts/install-packages.sh target || true
  for tool in powerpc-linux-gnu-g++ qemu-ppc; do
    command -v "$tool" >/dev/null || target_skip_reason+=" $tool"
  done
  [ -f /usr/src/googletest/CMakeLists.txt ] || target_skip_reason+=" /usr/src/googletest"
fi

# ---- Stages ------------------------------------------------------------------------------------
# Runs ctest in a build directory and adds its counts to the totals: "<label>: N passed, M failed".
run_suite() {
  local label=$1 dir=$2 log
  log=$(mktemp)
  local start=$SECONDS
  ctest --test-dir "$dir" --output-on-failure -j"$jobs" 2>&1 | tee "$log"
  local counts
  counts=$(sed -n 's/.*tests passed, \([0-9]*\) tests* failed out of \([0-9]*\).*/\1 \2/p' "$log")
  rm -f "$log"
  local suite_failed=1 suite_total=1
  [ -n "$counts" ] && read -r suite_failed suite_total <<<"$counts"
  passed=$((passed + suite_total - suite_failed))
  failed=$((failed + suite_failed))
  local suite_passed=$((suite_total - suite_failed))
  summary+=("$label: $suite_passed passed, $suite_failed failed (tests $((SECONDS - start)) s)")
}

configure() {
  local dir=$1 log
  shift
  log=$(mktemp)
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >"$log" 2>&1 || {
    cat "$log"
    rm -f "$log"
    return 1
  }
  rm -f "$log"
}

build() {
  local label=$1 dir=$2
  shift 2
  local start=$SECONDS
  configure "$dir" "$@" && cmake --build "$dir" -j "$jobs"
  local rc=$?
  summary+=("$label: build $((SECONDS - start)) s")
  return $rc
}

# The project's translation units in the host build's compile database.
project_sources() {
  sed -n 's/^ *"file": "\(.*\)",*$/\1/p' "$build_dir/compile_commands.json" |
    grep -E "^$root_regex/(src|sim|tests|tools|examples|bench)/" | LC_ALL=C sort -u
}

clang_tidy() {
  local log
  log=$(mktemp)
  # xargs fails when any file has a finding; the findings of a header repeat once per file.
  if printf '%s\n' "${sources[@]}" |
      xargs -P "$jobs" -n 1 clang-tidy -p "$build_dir" --quiet \
        --header-filter="^$root_regex/(include|platform|src|sim|tests|tools|examples|bench)/" \
        >"$log" 2>&1; then
    rm -f "$log"
    return 0
  fi
  grep -v -E '^[0-9]+ warnings? (and [0-9]+ errors? )?generated\.$' "$log"
  echo "clang-tidy: $(grep -E ': (warning|error): ' "$log" | LC_ALL=C sort -u | wc -l) findings"
  rm -f "$log"
  return 1
}

# Twice: with the host's type sizes and with those of a 32-bit Unix target like the switch. The
# host build's compile database holds the project's own sources only.
cppcheck_run() {
  local platform rc=0
  for platform in native unix32; do
    mkdir -p "$build_dir/cppcheck-$platform"
    cppcheck --project="$build_dir/compile_commands.json" --quiet \
      --platform=$platform --std=c++17 --library=googletest \
      --enable=warning,style,performance,portability --inline-suppr \
      --suppressions-list=.cppcheck-suppressions --error-exitcode=1 -j"$jobs" \
      --cppcheck-build-dir="$build_dir/cppcheck-$platform" \
      --template='{file}:{line}: {severity}: {message} [{id}]' || rc=1
  done
  return $rc
}

analysis_check() {
  local name=$1
  shift
  local start=$SECONDS
  if "$@"; then
    passed=$((passed + 1))
    summary+=("$name: no findings ($((SECONDS - start)) s)")
  else
    failed=$((failed + 1))
    summary+=("$name: FINDINGS ($((SECONDS - start)) s)")
  fi
}

# ---- Run -----------------------------------------------------------------------------------------
# shellcheck disable=SC2016 # a sed expression, not a shell one
root_regex=$(printf '%s' "$root" | sed 's/[][\.*^$()+?{}|]/\\&/g')
host_built=0
target_built=0

if [ $run_host -eq 1 ]; then
  section "Host build ($(uname -m)) in $build_dir"
  build "host ($(uname -m))" "$build_dir" || { echo "error: the host build failed" >&2; exit 1; }
  host_built=1
elif [ $run_analysis -eq 1 ]; then
  # The analysis needs the compile database only.
  configure "$build_dir" || exit 1
fi

if [ $run_target -eq 1 ]; then
  if [ -n "$target_skip_reason" ]; then
    skipped="target (powerpc): SKIPPED, the cross packages could not be installed"
    summary+=("$skipped (missing:$target_skip_reason)")
  else
    section "Target build (32-bit big-endian PowerPC) in $target_build_dir"
    if build "target (powerpc, qemu-ppc)" "$target_build_dir" \
        -DCMAKE_TOOLCHAIN_FILE="$toolchain"; then
      target_built=1
    else
      failed=$((failed + 1))
      summary+=("target (powerpc): the build FAILED")
    fi
  fi
fi

if [ $run_analysis -eq 1 ]; then
  section "Static analysis: clang-tidy and cppcheck"
  mapfile -t sources < <(project_sources)
  analysis_check "clang-tidy (${#sources[@]} files)" clang_tidy
  analysis_check "cppcheck (${#sources[@]} files, native and 32-bit)" cppcheck_run
fi

if [ $target_built -eq 1 ]; then
  section "Target suite under qemu-ppc"
  run_suite "target (powerpc, qemu-ppc)" "$target_build_dir"
fi

if [ $run_host -eq 1 ] && [ $host_built -eq 1 ]; then
  section "Host suite"
  run_suite "host ($(uname -m))" "$build_dir"
fi

if [ $run_reliability -eq 1 ]; then
  section "Reliability: sanitizers, concurrent first use, fuzzing"
  start=$SECONDS
  # The copy for the summary goes to a file of its own: teeing to /dev/stderr would reopen this
  # script's output and truncate it whenever that output is a file.
  reliability_log=$(mktemp)
  tests/reliability/run-reliability.sh | tee "$reliability_log"
  reliability_last=$(tail -n 1 "$reliability_log")
  rm -f "$reliability_log"
  if [[ $reliability_last =~ ^reliability:\ ([0-9]+)\ passed,\ ([0-9]+)\ failed$ ]]; then
    passed=$((passed + BASH_REMATCH[1]))
    failed=$((failed + BASH_REMATCH[2]))
    summary+=("$reliability_last ($((SECONDS - start)) s)")
  else
    failed=$((failed + 1))
    summary+=("reliability: did not finish ($((SECONDS - start)) s)")
  fi
fi

section "Summary"
printf '%s\n' "${summary[@]}"
echo "total: $passed passed, $failed failed"
[ $failed -eq 0 ]
