#!/bin/sh
# Code lines (blank and comment lines excluded, string literals understood) of the library and of
# the tests, and the tests' share of the library. The library is src/ and include/; the reference
# host (lumowin/) and the command-line host (tools/) are counted on their own line.
#   sh scripts/code-share.sh            the summary
#   sh scripts/code-share.sh PATH...    one count per path
set -eu
cd "$(dirname "$0")/.."

count() {
    git ls-files -- "$@" | grep -E '\.(c|cpp|h|inc)$' | xargs -r awk '
        FNR == 1 { block = 0 }
        {
            s = $0; n = length(s); code = 0; j = 1
            while (j <= n) {
                c = substr(s, j, 1); two = substr(s, j, 2)
                if (block) {
                    if (two == "*/") { block = 0; j += 2 } else j++
                    continue
                }
                if (two == "//") break
                if (two == "/*") { block = 1; j += 2; continue }
                if (c == "\"" || (c == "\047" && !(j > 1 && substr(s, j - 1, 1) ~ /[0-9A-Za-z]/))) {
                    code = 1; j++
                    while (j <= n && substr(s, j, 1) != c) j += (substr(s, j, 1) == "\\") ? 2 : 1
                    j++
                    continue
                }
                if (c !~ /[ \t\r]/) code = 1
                j++
            }
            lines += code
        }
        END { print lines + 0 }'
}

if [ $# -gt 0 ]; then
    for p in "$@"; do printf '%6d %s\n' "$(count "$p")" "$p"; done
    exit 0
fi
lib=$(count src include)
hosts=$(count lumowin tools)
tests=$(count tests)
printf 'library (src, include)   %6d\n' "$lib"
printf 'hosts (lumowin, tools)   %6d\n' "$hosts"
printf 'tests                    %6d\n' "$tests"
awk -v t="$tests" -v l="$lib" -v h="$hosts" 'BEGIN {
    printf "tests / library          %6.2f\n", t / l
    printf "tests / (library+hosts)  %6.2f\n", t / (l + h) }'
