#!/usr/bin/env bash
# Builds the libraries and the data accessor's concurrency tests with ThreadSanitizer in a build
# directory of their own, and runs those tests so that the first reported race fails the run.
#
#   scripts/tsan.sh [build-dir]     default: build-tsan beside this script's folder
#
# Called by the ctest case DataAccessorConcurrencyTsan (label "tsan") of the normal build, with a
# directory inside that build tree and the build's cmake and compiler in CMAKE and CXX; a second
# run rebuilds only what changed.
set -euo pipefail

source_dir="$(cd "$(dirname "$0")/.." && pwd)"
build_dir="${1:-${source_dir}/build-tsan}"
jobs="${JOBS:-$(nproc 2>/dev/null || echo 2)}"
cmake="${CMAKE:-cmake}"
program="${build_dir}/hyperspectral/kelto_data_accessor_tsan_tests"

# Warnings are the normal build's business: ThreadSanitizer adds some of its own (-Wtsan).
"${cmake}" -S "${source_dir}" -B "${build_dir}" \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS_RELEASE="-O1 -g1" \
  -DKELTO_SANITIZE_THREAD=ON \
  -DKELTO_WARNINGS_AS_ERRORS=OFF \
  -DKELTO_BUILD_TESTS=ON \
  -DKELTO_BUILD_TOOLS=OFF \
  -DKELTO_BUILD_BENCH=OFF >/dev/null
"${cmake}" --build "${build_dir}" --target kelto_data_accessor_tsan_tests --parallel "${jobs}"

export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ${TSAN_OPTIONS:-}"
filter="--gtest_filter=DataAccessorConcurrency*"
log="${build_dir}/tsan.log"

status=0
"${program}" "${filter}" >"${log}" 2>&1 || status=$?
# The sanitizer runtime of some compilers cannot map its shadow memory under the address space
# randomisation of newer kernels; it says so and stops before any test. Run again without it.
if [ "${status}" -ne 0 ] && grep -q "unexpected memory mapping" "${log}"; then
  status=0
  setarch "$(uname -m)" -R "${program}" "${filter}" >"${log}" 2>&1 || status=$?
fi
cat "${log}"
exit "${status}"
