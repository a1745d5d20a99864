#!/usr/bin/env bash
# Reliability run: the whole test suite under AddressSanitizer + UndefinedBehaviorSanitizer (leaks
# included), under ThreadSanitizer the concurrent-first-use test and halbd-sim reconfigured while
# a ping flood goes through its live ports, and a bounded run of the model-based fuzzer and of the
# fuzzers of halbd-sim's inputs (scenario lines, hex frames, captures). Each has a build directory
# of its own beside the default build.
#
#   tests/reliability/run-reliability.sh [asan] [tsan] [fuzz]     (default: all three)
#   FUZZ_SECONDS=3600 TOOL_FUZZ_SECONDS=600 FUZZ_JOBS=2 tests/reliability/run-reliability.sh fuzz
#
# On a fresh Debian machine it first installs what is missing (needs root for apt-get).
set -euo pipefail
cd "$(dirname "$0")/../.."

phases=("$@")
[ ${#phases[@]} -eq 0 ] && phases=(asan tsan fuzz)
fuzz_seconds=${FUZZ_SECONDS:-60}
tool_seconds=${TOOL_FUZZ_SECONDS:-20}
fuzz_jobs=${FUZZ_JOBS:-1}
jobs=${JOBS:-2}

# The suite runs whole under the sanitizers, so it needs what the host suite needs, and clang.
scripts/install-packages.sh build tests reliability || exit 1

# GCC links the sanitizer runtimes into shared libraries too, so the library and the simulated
# platform keep linking with --no-undefined. It also warns about uninitialised values inside
# instrumented standard-library code that are not there, hence -Wno-maybe-uninitialized.
configure() {
  local dir=$1 sanitizers=$2
  local flags="$sanitizers -g -fno-omit-frame-pointer -Wno-maybe-uninitialized"
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="$sanitizers" -DCMAKE_SHARED_LINKER_FLAGS="$sanitizers" >/dev/null
}

phase_asan() {
  configure build-asan "-fsanitize=address,undefined -fno-sanitize-recover=all"
  cmake --build build-asan -j"$jobs"
  # The installed-package check builds an example without the sanitizer runtime against the
  # instrumented library, which cannot load; the default build runs it.
  ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --test-dir build-asan -j"$jobs" --output-on-failure -E '^InstalledPackage'
  ASAN_OPTIONS=detect_leaks=1 build-asan/tests/reliability/reliability_test \
    --gtest_filter='FaultSweep.*:FuzzCorpus.*' | grep -E '^\[ (sweep|corpus)'
}

phase_tsan() {
  configure build-tsan "-fsanitize=thread"
  cmake --build build-tsan -j"$jobs" --target reliability_test halbd-sim
  TSAN_OPTIONS=halt_on_error=1 build-tsan/tests/reliability/reliability_test \
    --gtest_filter='SingletonRace.*'
  # Commands while a ping flood goes through halbd-sim's live ports (root; 77: skipped, said why).
  TSAN_OPTIONS=halt_on_error=1 tests/live/configure_while_forwarding.sh \
    build-tsan/tools/halbd-sim examples/live/topology.scn || [ $? -eq 77 ]
}

# Runs one fuzzer for its time on build-fuzz/corpus-NAME, seeded from the given files, and prints
# its figures. An input that breaks a check or crashes is written to build-fuzz/artifacts/ and
# belongs in the fuzzer's regression directory once the fault is fixed: the seeds include it, so
# it runs on every fuzz phase. Seeds are copied, so that the run's new inputs stay in the build
# directory.
run_fuzzer() {
  local name=$1 seconds=$2 max_len=$3
  shift 3
  local corpus=build-fuzz/corpus-$name log=build-fuzz/fuzz-$name.log
  mkdir -p "$corpus" build-fuzz/artifacts
  [ $# -gt 0 ] && cp "$@" "$corpus/"
  local parallel=()
  [ "$fuzz_jobs" -gt 1 ] && parallel=(-fork="$fuzz_jobs")
  local status=0
  ASAN_OPTIONS=detect_leaks=1 "build-fuzz/tests/reliability/halbd_${name}_fuzzer" "$corpus" \
    -max_total_time="$seconds" -max_len="$max_len" -print_final_stats=1 "${parallel[@]}" \
    -artifact_prefix=build-fuzz/artifacts/ >"$log" 2>&1 || status=$?
  if [ "$status" -ne 0 ]; then
    grep -E '^(  |violation:)|ERROR|SUMMARY|Test unit written' "$log" | head -60
    return 1
  fi
  local edges executions
  edges=$(grep -m1 -oE '[0-9]+ inline 8-bit counters' "$log" | cut -d' ' -f1)
  executions=$(grep -oE 'number_of_executed_units: [0-9]+' "$log" | awk '{n += $2} END {print n}')
  local format="[ fuzz %-8s] %s s: %s executions, %s of %s edges covered, %s features,"
  format+=" %s inputs in the corpus, no failure\n"
  grep -oE 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+' "$log" | tail -1 |
    awk -v f="$format" -v name="$name" -v s="$seconds" -v n="$executions" -v e="$edges" \
      '{printf f, name, s, n, $2, e, $4, $6}'
}

# The model fuzzer's corpus replayed by two builds without the sanitizers, which add a failure
# branch to each of their checks (about 1,600 edges of the library that only undefined behaviour
# takes): libFuzzer's count of the library's edges, and llvm-cov's regions and branches of its
# source.
count_library_coverage() {
  local corpus=build-fuzz/corpus-model profile=build-fuzz/model.profraw
  local configure=(cmake -S . -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DHALBD_FUZZ=ON
    -DHALBD_FUZZ_SANITIZERS=)
  CC=clang CXX=clang++ "${configure[@]}" -B build-fuzz-count >/dev/null
  CC=clang CXX=clang++ "${configure[@]}" -B build-fuzz-source -DHALBD_FUZZ_SOURCE_COVERAGE=ON \
    >/dev/null
  for dir in build-fuzz-count build-fuzz-source; do
    cmake --build "$dir" -j"$jobs" --target halbd_model_fuzzer >/dev/null
  done
  local replay edges
  replay=$(build-fuzz-count/tests/reliability/halbd_model_fuzzer "$corpus" -runs=0 2>&1)
  edges=$(grep -m1 -oE '[0-9]+ inline 8-bit counters' <<<"$replay" | cut -d' ' -f1)
  rm -f "$profile"
  LLVM_PROFILE_FILE=$profile build-fuzz-source/tests/reliability/halbd_model_fuzzer "$corpus" \
    -runs=0 >/dev/null 2>&1
  llvm-profdata merge -o "${profile%.profraw}.profdata" "$profile"
  grep -oE 'INITED cov: [0-9]+' <<<"$replay" | awk -v e="$edges" \
    '{printf "[ fuzz model   ] without the sanitizers: %s of %s library edges (%d %%),", $3, e, 100 * $3 / e}'
  # The report's total: regions, missed, cover, functions (3), lines (3), branches, missed, cover.
  llvm-cov report build-fuzz-source/tests/reliability/halbd_model_fuzzer \
    -instr-profile="${profile%.profraw}.profdata" | awk '/^TOTAL/ {
      printf " source regions %d of %d, branches %d of %d\n", $2 - $3, $2, $11 - $12, $11 }'
}

# The hex fuzzer's seeds: each frame of a capture (little-endian, as libpcap writes it here) behind
# a byte that picks the receiving port.
capture_frames() {
  local file=$1 out=$2 offset=24 frame=0 size length
  size=$(stat -c %s "$file")
  while [ $((offset + 16)) -le "$size" ]; do
    length=$(od -An -tu4 -j $((offset + 8)) -N4 "$file" | tr -d ' ')
    { printf '\x00'; tail -c +$((offset + 17)) "$file" | head -c "$length"; } >"$out/frame-$frame"
    offset=$((offset + 16 + length)) frame=$((frame + 1))
  done
}

# The model fuzzer: only the library carries the coverage instrumentation, so its edges are the
# library's; its seeds are the sweep's scenarios, the regression inputs (faults, bad values) and
# the inputs that reach deep states at once (seeds/).
# The tool's fuzzers count the library's edges and halbd-sim's, and are seeded from the examples.
phase_fuzz() {
  shopt -s nullglob  # a regression directory may be empty
  CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DHALBD_FUZZ=ON >/dev/null
  cmake --build build-fuzz -j"$jobs" --target halbd_model_fuzzer halbd_scenario_fuzzer \
    halbd_hex_fuzzer halbd_capture_fuzzer
  local fuzz=tests/reliability/fuzz frames=build-fuzz/hex-seeds
  run_fuzzer model "$fuzz_seconds" 256 $fuzz/corpus/* $fuzz/regressions/* $fuzz/seeds/*
  count_library_coverage
  run_fuzzer scenario "$tool_seconds" 4096 examples/*.scn examples/pitfalls/*.scn \
    $fuzz/tool-regressions/scenario/*
  mkdir -p "$frames"
  capture_frames examples/captures/provider-edge-in.pcap "$frames"
  run_fuzzer hex "$tool_seconds" 2048 "$frames"/* $fuzz/tool-regressions/hex/*
  run_fuzzer capture "$tool_seconds" 4096 examples/captures/*.pcap \
    examples/expected/provider-edge/*.pcap $fuzz/tool-regressions/capture/*
}

failed=0
passed=0
for phase in "${phases[@]}"; do
  echo "== reliability: $phase"
  start=$SECONDS
  # A subshell of its own, so that the first failing command ends the phase.
  set +e
  (
    set -e
    "phase_$phase"
  )
  status=$?
  set -e
  if [ "$status" -eq 0 ]; then
    passed=$((passed + 1))
    echo "== $phase passed in $((SECONDS - start)) s"
  else
    failed=$((failed + 1))
    echo "== $phase FAILED after $((SECONDS - start)) s"
  fi
done
echo "reliability: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
