#!/usr/bin/env bash
# Fails when a C++ source of the tree is not formatted with the tree's .clang-format, or when a
# line of a source, test or Python file is longer than 120 columns (what the formatter leaves
# alone, such as tables between "clang-format off" and "on", still has to fit).
set -euo pipefail
cd "$(dirname "$0")/.."
files=$(git ls-files '*.cpp' '*.h' '*.inc')
clang-format --dry-run --Werror $files
# Python sources have no formatter here, but the same line limit.
long=$(awk 'length > 120 { printf "%s:%d\n", FILENAME, FNR }' $files $(git ls-files '*.py'))
if [ -n "$long" ]; then
    echo "lines over 120 columns:"
    echo "$long"
    exit 1
fi
echo "format: $(echo "$files" | wc -l) files formatted, no line over 120 columns"
