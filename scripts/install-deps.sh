#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the tools need, and only those that are
# missing, so that running it again costs nothing. This is the one place that names them.
set -euo pipefail

packages=(
  # the libraries
  libxml2-dev libboost-dev libboost-thread-dev libboost-date-time-dev libeigen3-dev
  # the tools in tools/
  libcli11-dev nlohmann-json3-dev libgdal-dev
  # the Python package in python/: the module, its plots, its Dask front and its tests
  python3-dev python3-pybind11 python3-numpy python3-matplotlib python3-dask python3-distributed
  python3-pytest
  # numpy's BLAS in the benchmarks' Python peers: OpenBLAS, not the reference BLAS
  libopenblas0-pthread
  # building and testing; locales for the test of number parsing under a decimal-comma locale
  cmake g++ make pkg-config libgtest-dev libgmock-dev libbenchmark-dev locales
)

bash "$(dirname "$0")/install-packages.sh" "${packages[@]}"

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi

# A locale with a decimal comma, so that the test of number parsing under such a locale runs
# instead of being skipped.
if ! locale -a 2>/dev/null | grep -qix 'de_DE\.utf-\?8'; then
  echo "Generating the locale de_DE.UTF-8"
  $sudo sed -i 's/^# *\(de_DE\.UTF-8 UTF-8\)/\1/' /etc/locale.gen
  grep -q '^de_DE\.UTF-8 UTF-8' /etc/locale.gen || echo 'de_DE.UTF-8 UTF-8' | $sudo tee -a /etc/locale.gen >/dev/null
  $sudo locale-gen >/dev/null
fi
