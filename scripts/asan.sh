#!/usr/bin/env bash
# Builds the libraries, the tools and every C++ test with AddressSanitizer and
# UndefinedBehaviorSanitizer in a build directory of their own, and runs the whole ctest suite
# there (the install-and-consume case included, the Python package left out), so that the first
# memory error, leak or undefined behaviour fails the run.
#
#   scripts/asan.sh [build-dir]     default: build-asan beside this script's folder
#
# Called by the ctest case TestSuiteAsanUbsan (label "asan") of the normal build, with a directory
# inside that build tree and the build's cmake, ctest and compiler in CMAKE, CTEST and CXX; a
# second run rebuilds only what changed. -O1 without debug information keeps the build short.
set -euo pipefail

source_dir="$(cd "$(dirname "$0")/.." && pwd)"
build_dir="${1:-${source_dir}/build-asan}"
jobs="${JOBS:-$(nproc 2>/dev/null || echo 2)}"
cmake="${CMAKE:-cmake}"
ctest="${CTEST:-ctest}"

# Warnings are the normal build's business: at -O1 with the sanitizers GCC warns otherwise.
"${cmake}" -S "${source_dir}" -B "${build_dir}" \
  -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_CXX_FLAGS_RELEASE="-O1 -g0" \
  -DKELTO_SANITIZE_ADDRESS=ON \
  -DKELTO_WARNINGS_AS_ERRORS=OFF \
  -DKELTO_BUILD_TESTS=ON \
  -DKELTO_BUILD_TOOLS=ON \
  -DKELTO_BUILD_PYTHON=OFF \
  -DKELTO_BUILD_BENCH=OFF >/dev/null
"${cmake}" --build "${build_dir}" --parallel "${jobs}" >"${build_dir}/build.log" 2>&1 ||
  { tail -n 60 "${build_dir}/build.log"; exit 1; }

# Every finding ends the program that made it with a report; leaks are findings too.
export ASAN_OPTIONS="detect_leaks=1 abort_on_error=0 ${ASAN_OPTIONS:-}"
export UBSAN_OPTIONS="print_stacktrace=1 halt_on_error=1 ${UBSAN_OPTIONS:-}"
"${ctest}" --test-dir "${build_dir}" --output-on-failure --parallel "${jobs}"
