#!/usr/bin/env bash
# Builds and runs the whole test suite: the format check, an optimised build (its ctest runs the
# Python module's tests too, tests/python), the same tests under AddressSanitizer and
# UndefinedBehaviorSanitizer, a minute of each fuzz target, then the 32-bit Windows build under
# Wine.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh clang-format
jobs=$(nproc)

echo "== format"
bash scripts/check-format.sh

echo "== optimised build"
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKAVREL_PYTHON=ON
cmake --build build/release -j "$jobs"
ctest --test-dir build/release --output-on-failure

echo "== AddressSanitizer + UndefinedBehaviorSanitizer build"
cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKAVREL_SANITIZE=ON -DKAVREL_BENCH=OFF \
  -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g"
cmake --build build/asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --test-dir build/asan --output-on-failure
echo "== fuzz targets, a bounded minute each under AddressSanitizer + UndefinedBehaviorSanitizer"
bash scripts/fuzz.sh 60
echo "== 32-bit Windows cross build, export checks and the suite under Wine"
bash scripts/windows.sh
echo "== all tests passed"
