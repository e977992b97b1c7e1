#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer (build/fuzz) and runs each for a bounded time (seconds, default 60)
# from a copy of its seed corpus fuzz/corpus/<name>/, so the repository is not modified. Any
# crash, leak, sanitizer report or timeout fails the run; the reproducer is left in the scratch
# directory that the output names.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
bash scripts/deps.sh clang libclang-rt-14-dev
CC=clang CXX=clang++ cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKAVREL_FUZZ=ON \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" >/dev/null
# Only the targets: the shared library is not needed here.
names=$(for f in fuzz/*.cpp; do basename "$f" .cpp; done)
cmake --build build/fuzz -j "$(nproc)" --target $(for n in $names; do printf 'fuzz_%s ' "$n"; done)
scratch=$(mktemp -d)
status=0
for name in $names; do
    bin=build/fuzz/fuzz_$name
    mkdir -p "$scratch/$name"
    if [ -d "fuzz/corpus/$name" ]; then cp -r "fuzz/corpus/$name/." "$scratch/$name/"; fi
    echo "== fuzz_$name for ${seconds}s"
    if ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1 \
        "$bin" -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=20 -print_final_stats=1 \
        -artifact_prefix="$scratch/$name-" "$scratch/$name" >"$scratch/$name.log" 2>&1; then
        grep -E '^stat::number_of_executed_units' "$scratch/$name.log" || true
    else
        echo "FAIL: fuzz_$name (log and reproducer in $scratch)"
        tail -40 "$scratch/$name.log"
        status=1
    fi
done
[ $status = 0 ] && rm -rf "$scratch"
exit $status
