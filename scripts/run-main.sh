#!/usr/bin/env bash
# The main job: builds the library and its command-line host, then runs `kavrel demo`, a tour of
# the estimations on the shipped example data that writes its reports and plots into kavrel-demo/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DKAVREL_TESTS=OFF -DKAVREL_BENCH=OFF
# The Python module too, where the configuration found pybind11 (PYTHONPATH=build/release/python).
targets=(kavrel)
grep -q '^KAVREL_PYTHON:BOOL=ON' build/release/CMakeCache.txt && targets+=(kavrel_python)
cmake --build build/release -j "$(nproc)" --target "${targets[@]}"
./build/release/kavrel demo --out kavrel-demo
