#!/usr/bin/env bash
# The 32-bit Windows build: installs the cross compiler and Wine, cross-builds kavrel15_lumo.dll,
# lumowin.dll and the test programs, checks the DLL's export and import tables, and runs the test
# suite under Wine. Without a usable Wine the build and the table checks still run and must pass;
# the Wine stage then prints one line beginning "SKIPPED:". Environment: KAVREL_WIN_BUILD (build
# directory, default build/windows), JOBS (parallel jobs, default nproc), KAVREL_WIN_SKIP_INSTALL=1
# (use what is installed).
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=${KAVREL_WIN_BUILD:-build/windows}
jobs=${JOBS:-$(nproc)}
triplet=i686-w64-mingw32
export DEBIAN_FRONTEND=noninteractive

say() { printf '%s\n' "$*"; }
installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"; }

# --- Installation ----------------------------------------------------------------------------
wine_packages=(wine wine32:i386 wine32-preloader:i386)

# Debian's i386 security index can lag behind the amd64 one on this mirror; then the 32-bit
# libraries cannot match the amd64 versions already installed. Retry against the main and updates
# suites only, from a list of our own (the system's sources and package lists stay as they are).
install_without_security_suite() {
    local dir
    dir=$(mktemp -d)
    mkdir -p "$dir/lists/partial"
    cat >"$dir/sources.list" <<'EOF'
deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian bookworm main
deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] http://deb.debian.org/debian bookworm-updates main
EOF
    local opts=(-o "Dir::Etc::SourceList=$dir/sources.list" -o "Dir::Etc::SourceParts=/nonexistent"
        -o "Dir::State::Lists=$dir/lists")
    local rc=0
    apt-get "${opts[@]}" update -qq && apt-get "${opts[@]}" install -y -qq --no-install-recommends "$@" || rc=$?
    rm -rf "$dir"
    return $rc
}

# Installs the packages that are missing: plainly first, then without the security suite. An
# update that fails on one stale index still leaves the others usable, so it does not stop here.
install_packages() {
    local missing=()
    for p in "$@"; do installed "$p" || missing+=("$p"); done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing: ${missing[*]}"
    apt-get update -qq || true
    apt-get install -y -qq --no-install-recommends "${missing[@]}" && return 0
    say "plain install failed; retrying without the security suite"
    install_without_security_suite "${missing[@]}"
}

install_wine() {
    dpkg --print-foreign-architectures | grep -qx i386 || dpkg --add-architecture i386
    install_packages "${wine_packages[@]}"
}

# Wine's 32-bit loader is a 32-bit Linux program. Only where the kernel cannot run it natively is
# QEMU's user-mode emulator registered with binfmt_misc, for i386 ELF executables alone (the one
# system-wide change this script makes; README).
i386_runs() { /usr/lib/wine/wine --version >/dev/null 2>&1; }
enable_i386_emulation() {
    i386_runs && return 0
    say "this kernel does not run 32-bit programs; registering qemu-i386 for them"
    install_packages qemu-user-static || return 1
    local misc=/proc/sys/fs/binfmt_misc
    [ -e "$misc/register" ] || mount -t binfmt_misc binfmt_misc "$misc"
    if [ ! -e "$misc/qemu-i386" ] && [ ! -e "$misc/kavrel-i386" ]; then
        printf '%s' ':kavrel-i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00:\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff:/usr/bin/qemu-i386-static:F' \
            >"$misc/register"
    fi
    i386_runs
}

wine_ok=1
if [ "${KAVREL_WIN_SKIP_INSTALL:-0}" != 1 ]; then
    install_packages cmake ninja-build libboost-math-dev libgtest-dev googletest g++-mingw-w64-i686
    if ! install_wine; then wine_ok=0; fi
fi
if [ $wine_ok = 1 ] && ! command -v wine >/dev/null; then wine_ok=0; fi
if [ $wine_ok = 1 ] && ! enable_i386_emulation; then wine_ok=0; fi

# --- Cross build -----------------------------------------------------------------------------
say "== 32-bit Windows cross build in $build"
cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-i686.cmake" \
    -DCMAKE_BUILD_TYPE=Release -DKAVREL_BENCH=OFF
cmake --build "$build" -j "$jobs"

# --- Export and import tables ----------------------------------------------------------------
say "== export and import tables of kavrel15_lumo.dll"
dll="$build/kavrel15_lumo.dll"
dump=$("$triplet-objdump" -p "$dll")
fail=0
"$triplet-objdump" -f "$dll" | grep -q 'file format pei-i386' || { say "FAIL: $dll is not a 32-bit PE"; fail=1; }

# The export names in the table: the lines after "[Ordinal/Name Pointer] Table".
exported=$(printf '%s\n' "$dump" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p' |
    sed -n 's/^[[:space:]]*\[[[:space:]]*[0-9]*\][[:space:]]\+\([^[:space:]]\+\).*/\1/p' | sort)
# The built rows of the export table, as the build wrote them into the module-definition file.
table=$(sed -n 's/^[[:space:]]\+\(Fn[A-Za-z0-9_]\+\)[[:space:]]*$/\1/p' "$build/kavrel15_lumo.def" | sort)
if [ -z "$table" ] || [ "$exported" != "$table" ]; then
    say "FAIL: exports differ from the built rows of include/kavrel/exports.inc (< exported, > table):"
    diff <(printf '%s\n' "$exported") <(printf '%s\n' "$table") || true
    fail=1
else
    say "exports: $(printf '%s\n' "$exported" | wc -l) plain names, the built rows of the export table"
fi

# Imports: lumowin.dll only for the host services the library calls; no MinGW runtime DLLs.
services=(LumoLibCheckType LumoLibCheckMatrixSize LumoLibValMatMalloc LumoLibValMatDup LumoLibValArrayCalloc
    LumoValGetArrayVal LumoValGetString LumoValSetString LumoValSetInt LumoFreeByValue LumoLibArgError)
dlls=$(printf '%s\n' "$dump" | sed -n 's/^[[:space:]]*DLL Name: //p' | sort -f)
say "imported DLLs: $(echo $dlls)"
if printf '%s\n' "$dlls" | grep -qiE 'libgcc|libstdc|winpthread|^lib.*\.dll$'; then
    say "FAIL: the DLL depends on a MinGW runtime DLL"
    fail=1
fi
from_lumowin=$(printf '%s\n' "$dump" | awk '
    /DLL Name:/ { inside = ($3 == "lumowin.dll") ; next }
    inside && NF >= 3 && $1 ~ /^[0-9a-f]+$/ && $2 ~ /^[0-9]+$/ { print $3 }
    inside && NF == 0 { inside = 0 }' | sort -u)
used=$(for s in "${services[@]}"; do if grep -rqE "\b$s[[:space:]]*\(" src; then echo "$s"; fi; done | sort)
if [ "$from_lumowin" != "$used" ]; then
    say "FAIL: imports from lumowin.dll differ from the services the sources call (< imported, > called):"
    diff <(printf '%s\n' "$from_lumowin") <(printf '%s\n' "$used") || true
    fail=1
else
    say "imports from lumowin.dll: $(echo $from_lumowin)"
fi
lumowin_exports=$("$triplet-objdump" -p "$build/lumowin.dll" | sed -n '/\[Ordinal\/Name Pointer\] Table/,/^$/p')
for s in "${services[@]}"; do
    printf '%s\n' "$lumowin_exports" | grep -qE "\] $s\$" || { say "FAIL: lumowin.dll does not export $s"; fail=1; }
done
[ $fail = 0 ] || { say "== export or import check FAILED"; exit 1; }

# --- Tests under Wine ------------------------------------------------------------------------
if [ $wine_ok = 1 ]; then
    say "== test suite under Wine"
    # Wine starts its background services with the first program and stops them with the last;
    # under an emulator that costs many seconds per test program. A keeper program (cmd waiting
    # on a pipe that this script holds open) keeps one session alive for the whole run.
    prefix="$root/$build/wineprefix"
    fifo=$(mktemp -u)
    mkfifo "$fifo"
    # The session must be started by a process that holds none of ctest's pipes: Wine's server
    # and services inherit the descriptors of the program that starts them, and ctest waits for
    # every holder of a test's output pipe to close it. So the prefix is made and the session
    # started here, before ctest runs.
    # Under the emulator a first start can stall; it is bounded, retried once with a new prefix,
    # and then reported as Wine being unusable rather than left to hang the run.
    start_session() { timeout 600 "$root/cmake/wine-run.sh" "$prefix" cmd /c exit </dev/null >/dev/null 2>&1; }
    if ! start_session; then
        say "the Wine session did not start; retrying with a new prefix"
        WINEPREFIX="$prefix" timeout 60 wineserver -k 2>/dev/null || true
        rm -rf "$prefix" "$prefix.lock"
        if ! start_session; then
            rm -f "$fifo"
            say "SKIPPED: Windows tests not run: the Wine session did not start (cross build and export/import checks passed)"
            exit 0
        fi
    fi
    "$root/cmake/wine-run.sh" "$prefix" cmd /c "set /p x=" <"$fifo" >/dev/null 2>&1 &
    keeper=$!
    exec 8>"$fifo"
    start_session || true
    stop_keeper() {
        exec 8>&- || true
        WINEPREFIX="$prefix" wineserver -k 2>/dev/null || true
        wait "$keeper" 2>/dev/null || true
        rm -f "$fifo"
    }
    trap stop_keeper EXIT
    rc=0
    ctest --test-dir "$build" --output-on-failure -j "$jobs" --timeout 900 || rc=$?
    stop_keeper
    trap - EXIT
    [ $rc = 0 ] || exit $rc
    say "== Windows build and tests passed"
else
    say "SKIPPED: Windows tests not run: Wine cannot run on this machine (cross build and export/import checks passed)"
fi
