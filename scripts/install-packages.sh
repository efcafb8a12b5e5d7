#!/usr/bin/env bash
# Installs those of the named Debian packages that are missing, through apt, with sudo when not
# run as root; nothing when all are there. Called by install-deps.sh and install-fuzz-deps.sh,
# which name the packages.
#
#   scripts/install-packages.sh package...
set -euo pipefail

missing=()
for p in "$@"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
  fi
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -qq
  $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
