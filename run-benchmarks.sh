#!/usr/bin/env bash
# Builds and runs the performance suite (bench/, docs/PERFORMANCE.md) and prints its figures. On a
# fresh Debian machine it first installs what is missing (apt-get, needs root). Not part of the
# tests or of CI: the figures depend on the machine and on what else runs on it.
#   ./run-benchmarks.sh [--quick] [--no-wait] [--filter REGEX]
#   ./run-benchmarks.sh --instructions [--filter REGEX]
#   ./run-benchmarks.sh --powerpc
# - builds halbd-bench and halbd-bench-memory in $BUILD_DIR (default build-bench, RelWithDebInfo;
#   BUILD_TYPE=Release for a release build);
# - waits (up to $WAIT_MINUTES, default 20) until the 1-minute load average is at most $MAX_LOAD
#   (default 1.0), so that other work does not take the figures' time; then runs anyway, saying so;
# - runs every timing scenario $REPETITIONS times (default 5) in random interleaving and reports
#   the medians, followed by the summary against the issue's targets; the results also go to
#   $BUILD_DIR/bench-results.json;
# - runs the memory program: the books' heap bytes, then the peak resident size of the full switch,
#   each peak in a process of its own.
# --quick: one short repetition, to try the suite; --no-wait: skip the wait for a quiet machine;
# --filter: only the timing scenarios whose name matches (Google Benchmark's regular expression).
# --instructions: the figures of record instead, which do not depend on the machine: every
#   scenario on the null chip (or those matching --filter) runs a fixed number of operations under
#   callgrind, and the table gives the library's own instructions per operation and per SDK call,
#   its share if each SDK call took 1 us on a 1 GHz CPU at one instruction per cycle, and the heap
#   allocations per operation (counting allocator). Needs valgrind and python3; no wait for a
#   quiet machine. The dumps stay in $BUILD_DIR/instructions/.
# --powerpc: the instructions that the PowerPC build executes for two of those operations (with
#   the null chip's answer), counted under qemu-ppc by the plugin bench/powerpc/qemu_insn_count.c;
#   cross-builds halbd-op-count in $TARGET_BUILD_DIR (default build-ppc).
set -uo pipefail
cd "$(dirname "$0")" || exit 1

build_dir=${BUILD_DIR:-build-bench}
build_type=${BUILD_TYPE:-RelWithDebInfo}
jobs=${JOBS:-$(nproc)}
max_load=${MAX_LOAD:-1.0}
wait_minutes=${WAIT_MINUTES:-20}
repetitions=${REPETITIONS:-5}
min_time=${MIN_TIME:-0.2}
quick=0 wait_for_quiet=1 filter="" instructions=0 powerpc=0

while [ $# -gt 0 ]; do
  case $1 in
    --quick) quick=1 ;;
    --no-wait) wait_for_quiet=0 ;;
    --filter) shift; filter=${1:-} ;;
    --instructions) instructions=1 ;;
    --powerpc) powerpc=1 ;;
    *) echo "usage: $0 [--quick] [--no-wait] [--filter REGEX] | --instructions [--filter REGEX]" \
         "| --powerpc" >&2
       exit 2 ;;
  esac
  shift
done

section() { printf '\n== %s\n' "$*"; }

# ---- Packages --------------------------------------------------------------------------------------
# The groups of packages.txt: the whole tree is configured (build), the benchmarks need Google
# Benchmark and callgrind (bench); the PowerPC counts need the cross build (target).
groups=(build bench)
[ $powerpc -eq 1 ] && groups+=(target)
scripts/install-packages.sh "${groups[@]}" || exit 1

# ---- PowerPC ---------------------------------------------------------------------------------------
if [ $powerpc -eq 1 ]; then
  target_dir=${TARGET_BUILD_DIR:-build-ppc}
  section "PowerPC build ($build_type) in $target_dir"
  log=$(mktemp)
  if ! cmake -S . -B "$target_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" \
      -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/powerpc-linux-gnu.cmake" >"$log" 2>&1; then
    cat "$log"
    rm -f "$log"
    exit 1
  fi
  rm -f "$log"
  cmake --build "$target_dir" -j "$jobs" --target halbd-op-count || exit 1
  gcc -shared -fPIC -O2 -Wall -Wextra -Werror -o "$target_dir/qemu_insn_count.so" \
    bench/powerpc/qemu_insn_count.c || exit 1
  section "Instructions per operation on PowerPC (qemu-ppc, null chip's answer included)"
  # Each line: the instructions between the marks, per operation; "empty" is the marks' own cost.
  qemu-ppc -L /usr/powerpc-linux-gnu -plugin "$target_dir/qemu_insn_count.so" \
    "$target_dir/bench/halbd-op-count"
  exit $?
fi

# ---- Build -----------------------------------------------------------------------------------------
section "Build ($build_type) in $build_dir"
log=$(mktemp)
if ! cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" >"$log" 2>&1; then
  cat "$log"
  rm -f "$log"
  exit 1
fi
rm -f "$log"
bench=$build_dir/bench/halbd-bench
memory=$build_dir/bench/halbd-bench-memory

# ---- Instructions ----------------------------------------------------------------------------------
if [ $instructions -eq 1 ]; then
  cmake --build "$build_dir" -j "$jobs" --target halbd-bench halbd-bench-allocations || exit 1
  out=$build_dir/instructions
  rm -rf "$out"
  mkdir -p "$out"
  # Each run in a process of its own, so that its figures (allocation above all) depend on its own
  # set-up only, not on which runs came before it.
  mapfile -t runs < <("$bench" --instructions --benchmark_list_tests \
    --benchmark_filter="${filter:-/null/}" | sed 's|/iterations:.*||')
  [ ${#runs[@]} -gt 0 ] || { echo "error: no scenario matches" >&2; exit 1; }
  section "Instructions per operation (callgrind) and allocations (counting allocator)"
  echo "${#runs[@]} runs, one process each..."
  n=0
  for run in "${runs[@]}"; do
    n=$((n + 1))
    only=(--instructions --benchmark_filter="^${run}/" --benchmark_out_format=json)
    "$build_dir/bench/halbd-bench-allocations" "${only[@]}" \
      --benchmark_out="$out/allocations-$n.json" >"$out/allocations.log" 2>&1 || {
      tail -20 "$out/allocations.log"
      exit 1
    }
    # Collection starts switched off; the program switches it on around each operation under test.
    # Symbols are bound at start-up, so that no operation pays for resolving a first call.
    LD_BIND_NOW=1 valgrind --tool=callgrind --collect-atstart=no --callgrind-out-file="$out/callgrind.out.$n" \
      "$bench" "${only[@]}" --benchmark_out="$out/counting-$n.json" >"$out/valgrind.log" 2>&1 || {
      tail -20 "$out/valgrind.log"
      exit 1
    }
  done
  python3 bench/support/instruction_table.py "$out"
  exit $?
fi

cmake --build "$build_dir" -j "$jobs" --target halbd-bench halbd-bench-memory || exit 1

# ---- A quiet machine -------------------------------------------------------------------------------
load() { cut -d' ' -f1 /proc/loadavg; }
quiet() { awk -v load="$(load)" -v max="$max_load" 'BEGIN { exit !(load <= max) }'; }

if [ $wait_for_quiet -eq 1 ] && [ $quick -eq 0 ]; then
  waited=0
  while ! quiet && [ $waited -lt $((wait_minutes * 60)) ]; do
    [ $((waited % 60)) -eq 0 ] && echo "load $(load) > $max_load: waiting for a quiet machine..."
    sleep 10
    waited=$((waited + 10))
  done
  quiet || echo "warning: the load is still $(load) after $wait_minutes minutes; the figures are noisy"
fi

section "Machine"
echo "cpu: $(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1), $(nproc) cores"
echo "load before: $(cut -d' ' -f1-3 /proc/loadavg)"

# ---- Timing ----------------------------------------------------------------------------------------
section "Time per operation and SDK calls per operation"
timing_args=(--benchmark_counters_tabular=true)
if [ $quick -eq 1 ]; then
  timing_args+=(--benchmark_min_time=0.01)
else
  timing_args+=(--benchmark_min_time="$min_time" --benchmark_repetitions="$repetitions"
    --benchmark_report_aggregates_only=true --benchmark_enable_random_interleaving=true)
fi
[ -n "$filter" ] && timing_args+=(--benchmark_filter="$filter")
"$bench" "${timing_args[@]}" --benchmark_out="$build_dir/bench-results.json" \
  --benchmark_out_format=json
rc=$?
echo "load after: $(cut -d' ' -f1-3 /proc/loadavg)"

# ---- Memory ----------------------------------------------------------------------------------------
if [ -z "$filter" ]; then
  section "Heap bytes of the books (counting allocator)"
  "$memory" --benchmark_filter='^books/' --benchmark_counters_tabular=true || rc=1
  section "Peak resident memory of the full switch (one process each)"
  for chip in model null; do
    "$memory" --benchmark_filter="^peakRss/fullSwitch/$chip/" --benchmark_counters_tabular=true ||
      rc=1
  done
fi
exit $rc
