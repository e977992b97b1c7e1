#!/bin/sh
# Runs a 32-bit Windows program under Wine without a display: wine-run.sh PREFIX PROGRAM [ARGS...].
# The prefix is made on first use (serialised, since tests may start in parallel) and is a plain
# 32-bit one; Mono and Gecko installers are switched off so that nothing waits for a dialog.
# KAVREL_WINE overrides the Wine loader (default: wine from PATH).
set -e
prefix=$1
shift
export WINEPREFIX="$prefix"
export WINEARCH=win32
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe=d;winedbg.exe=d"
unset DISPLAY WAYLAND_DISPLAY
wine=${KAVREL_WINE:-wine}
if [ ! -f "$prefix/system.reg" ]; then
    mkdir -p "$(dirname "$prefix")"
    (
        flock 9
        if [ ! -f "$prefix/system.reg" ]; then
            "$wine" wineboot --init >/dev/null 2>&1 || true
            WINEPREFIX="$prefix" wineserver -w 2>/dev/null || true
        fi
    ) 9>"$prefix.lock"
fi
exec "$wine" "$@"
