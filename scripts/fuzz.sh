#!/usr/bin/env bash
# make fuzz: builds the libFuzzer programs of fuzz/ with clang (coverage, AddressSanitizer and
# UndefinedBehaviorSanitizer over the whole family) in $FUZZ_BUILD_DIR, runs each target for
# $FUZZ_SECONDS seconds and prints per target the executions, the coverage and the findings.
# Everything a run writes (its growing corpus, crash, leak, timeout and out-of-memory inputs,
# logs) stays under $FUZZ_BUILD_DIR/runs/<target>/. A finding ends that target's run; the input
# is then to be minimised (the program with -minimize_crash=1) and added to fuzz/regressions/.
#
#   FUZZ_SECONDS   seconds per target (default 60)
#   FUZZ_TARGETS   the targets to run, separated by blanks (default all)
#   FUZZ_BUILD_DIR the build folder (default build-fuzz)
#   FUZZ_JOBS      compiler processes (default nproc)
#
# The limits follow what a host program may expect of one input: at most 1 MiB (-max_len), 1 s
# (-timeout) and no single allocation above 17 MiB (-malloc_limit_mb); the process as a whole,
# sanitizer shadow memory included, stays below -rss_limit_mb.
set -euo pipefail

cd "$(dirname "$0")/.."
seconds=${FUZZ_SECONDS:-60}
build=${FUZZ_BUILD_DIR:-build-fuzz}
jobs=${FUZZ_JOBS:-$(nproc 2>/dev/null || echo 2)}
all_targets="calibration record parameters context_description product_map data_accessor
             block_corrector cube_reader"
targets=${FUZZ_TARGETS:-$all_targets}

bash scripts/install-deps.sh
bash scripts/install-fuzz-deps.sh

launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
echo "== configuring $build (clang, -fsanitize=fuzzer,address,undefined)"
CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DKELTO_BUILD_FUZZ=ON -DKELTO_BUILD_TESTS=OFF -DKELTO_BUILD_PYTHON=OFF \
  -DKELTO_BUILD_BENCH=OFF "${launcher[@]}" >/dev/null
programs=()
for target in $targets; do
  programs+=("kelto_fuzz_$target")
done
echo "== building ${programs[*]} (compiler output in $build/fuzz-build.log)"
cmake --build "$build" --parallel "$jobs" --target "${programs[@]}" >"$build/fuzz-build.log" 2>&1 ||
  { tail -n 40 "$build/fuzz-build.log"; exit 1; }

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:allocator_may_return_null=0}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export ASAN_SYMBOLIZER_PATH=${ASAN_SYMBOLIZER_PATH:-$(command -v llvm-symbolizer-14 || true)}

results=()
total=0
findings_total=0
for target in $targets; do
  run="$build/runs/$target"
  # What an earlier run found is kept aside, so that the count below is this run's.
  if [ -n "$(ls -A "$run/artifacts" 2>/dev/null)" ]; then
    rm -rf "$run/artifacts.previous"
    mv "$run/artifacts" "$run/artifacts.previous"
  fi
  mkdir -p "$run/corpus" "$run/artifacts"
  mapfile -t seeds <"$build/fuzz/kelto_fuzz_$target.seeds"
  dict=()
  case $target in
    data_accessor | block_corrector) ;;
    cube_reader) dict=(-dict=fuzz/envi.dict) ;;
    *) dict=(-dict=fuzz/xml.dict) ;;
  esac
  echo "== $target: $seconds s"
  status=0
  "$build/fuzz/kelto_fuzz_$target" "$run/corpus" "${seeds[@]}" "${dict[@]}" \
    -max_total_time="$seconds" -max_len=1048576 -timeout=1 -rss_limit_mb=2560 \
    -malloc_limit_mb=17 -print_final_stats=1 -artifact_prefix="$run/artifacts/" \
    >"$run/log" 2>&1 || status=$?
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$run/log" | tail -n 1)
  coverage=$(grep -Eo 'cov: [0-9]+ ft: [0-9]+' "$run/log" | tail -n 1 || true)
  findings=$(find "$run/artifacts" -type f | wc -l)
  execs=${execs:-0}
  total=$((total + execs))
  findings_total=$((findings_total + findings))
  results+=("$(printf '%-20s %12s   %-22s %s' "$target" "$execs" "${coverage:-cov: ? ft: ?}" \
    "$findings")")
  if [ "$status" -ne 0 ] || [ "$findings" -ne 0 ]; then
    echo "   finding (exit status $status), see $run/log and $run/artifacts/:"
    grep -E '^==[0-9]+==ERROR|^SUMMARY|fuzz target failed|runtime error|ALARM|out-of-memory' \
      "$run/log" | head -n 5 | sed 's/^/   /' || true
  fi
done

echo
printf '%-20s %12s   %-22s %s\n' target executions coverage findings
printf '%s\n' "${results[@]}"
printf '%-20s %12s   %-22s %s\n' total "$total" "" "$findings_total"
[ "$findings_total" -eq 0 ]
