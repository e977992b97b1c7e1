#!/usr/bin/env bash
# Installs the Debian packages the build needs, when any is missing (needs root on a fresh machine).
set -euo pipefail
# The Python module and its tests: Debian's interpreter with pybind11, numpy, pandas, pytest,
# statsmodels (reference fits) and dask (the batch example).
want=(cmake ninja-build g++ libgtest-dev libbenchmark-dev libboost-math-dev gnuplot-nox
      python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pandas python3-pytest python3-statsmodels
      python3-dask python3-distributed "$@")
missing=()
for p in "${want[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  # One stale index (the i386 security suite, once that architecture is added) must not stop
  # the install of packages the other indexes provide.
  apt-get update -qq || true
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
