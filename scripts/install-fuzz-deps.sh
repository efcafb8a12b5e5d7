#!/usr/bin/env bash
# Installs what make fuzz needs beyond scripts/install-deps.sh: clang and its libFuzzer,
# AddressSanitizer and UndefinedBehaviorSanitizer runtimes (libclang_rt.fuzzer and friends, in
# libclang-rt-14-dev on Debian 12). Only what is missing; make test never needs any of it.
set -euo pipefail

packages=(clang-14 libclang-rt-14-dev llvm-14)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi

if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
