#!/usr/bin/env bash
# Installs what make fuzz needs beyond scripts/install-deps.sh: clang and its libFuzzer,
# AddressSanitizer and UndefinedBehaviorSanitizer runtimes (libclang_rt.fuzzer and friends, in
# libclang-rt-14-dev on Debian 12). Only what is missing; make test never needs any of it.
set -euo pipefail

bash "$(dirname "$0")/install-packages.sh" clang-14 libclang-rt-14-dev llvm-14
