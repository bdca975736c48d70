#!/usr/bin/env bash
# Wine for the Windows stages, sourced by their scripts (cross-build.sh, windows-java-test.sh):
# finds wine64, sets up a private headless prefix, translates paths and registers COM modules in it.
#
#   source tools/wine.sh
#   wine_prefix DIR            # WINEPREFIX=DIR (headless, 64-bit), created on first use; wineserver
#                              # is stopped when the calling script exits
#   wine_path UNIX_PATH        # prints the Windows form (Z:\...)
#   wine_register MODULE.dll   # regsvr32 /s of the module in the prefix, tried twice; fails with
#                              # its output and exit codes
#
# wine64 is $WINE64 afterwards (Debian keeps it off the PATH; $OPC_WINE64 chooses another).

wine_find64() {
    local w
    for w in "${OPC_WINE64:-}" "$(command -v wine64 || true)" \
             "$(dpkg -L wine64 2>/dev/null | grep '/wine64$' | head -n 1 || true)" \
             /usr/lib/wine/wine64 /usr/lib/x86_64-linux-gnu/wine/wine64; do
        if [ -n "$w" ] && [ -x "$w" ] && [ ! -d "$w" ]; then
            echo "$w"
            return 0
        fi
    done
    return 1
}

wine_stop() { [ -n "${WINESERVER:-}" ] && "$WINESERVER" -k >/dev/null 2>&1 || true; }

wine_prefix() {
    WINE64=$(wine_find64) || { echo "wine: wine64 not found (run tools/setup.sh)" >&2; return 1; }
    WINESERVER="$(dirname "$WINE64")/wineserver"
    [ -x "$WINESERVER" ] || WINESERVER=$(command -v wineserver || true)
    export WINEPREFIX="$1" WINEDEBUG=${WINEDEBUG:--all} WINEARCH=win64
    # No Mono or Gecko installers; no display.
    export WINEDLLOVERRIDES="mscoree=;mshtml="
    unset DISPLAY WAYLAND_DISPLAY
    trap wine_stop EXIT
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        mkdir -p "$(dirname "$WINEPREFIX")"
        echo "wine: creating the prefix $WINEPREFIX"
        "$WINE64" wineboot -i >"$WINEPREFIX.wineboot.log" 2>&1 ||
            { cat "$WINEPREFIX.wineboot.log" >&2; echo "wine: wineboot failed" >&2; return 1; }
        [ -n "$WINESERVER" ] && "$WINESERVER" -w
    fi
    return 0
}

wine_path() { "$WINE64" winepath -w "$1" 2>/dev/null | tr -d '\r'; }

wine_register() {
    local out status
    out=$("$WINE64" regsvr32 /s "$(wine_path "$1")" 2>&1) && return 0
    status=$?
    # Once, in CI, a registration that had always passed failed silently right after a JVM had ended,
    # and passed when run by hand: a second try after a pause, said aloud, before giving up.
    sleep 2
    out=$("$WINE64" regsvr32 /s "$(wine_path "$1")" 2>&1)
    local again=$?
    if [ "$again" -eq 0 ]; then
        echo "wine: regsvr32 $1 failed (exit $status), then passed on a second try" >&2
        return 0
    fi
    echo "$out" >&2
    echo "wine: regsvr32 $1 failed (exit $status, then $again)" >&2
    return 1
}
