#!/usr/bin/env bash
# The main job: builds the library and runs the example host program, which loads the shipped
# quarterly macro data and prints recursive least-squares estimates computed through FnRlsEst.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release
cmake --build build/release -j "$(nproc)" --target rls_demo
./build/release/rls_demo tests/data/macrodata.csv
