#!/usr/bin/env bash
# Gathers the native files that the jar carries into build/jar/natives/<platform>/, with an index
# that the loader reads (one "file <sha-256> <name>" line per file, one "register <name>" line per
# COM module that the extracted runtime registers). Linux files come from build/native, Windows
# files from the cross-build (build/windows/bin); a Windows file that is missing is left out.
#
#   tools/stage-natives.sh                     what exists
#   tools/stage-natives.sh --require-windows   fail when opc.dll or the simulation DLL is missing
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
require_windows=0
for arg in "$@"; do
    case "$arg" in
        --require-windows) require_windows=1 ;;
        *) echo "usage: $0 [--require-windows]" >&2; exit 2 ;;
    esac
done
out="$root/build/jar/natives"

# stage <platform> <registered modules> -- <source file>...
stage() {
    local platform=$1 register=$2
    shift 3
    local dir="$out/$platform" tmp="$out/.$platform.tmp"
    rm -rf "$tmp"
    mkdir -p "$tmp"
    local f name
    for f in "$@"; do
        [ -f "$f" ] || continue
        name=$(basename "$f")
        case "$name" in
            *.so) objcopy --strip-debug "$f" "$tmp/$name" ;;
            *.dll) x86_64-w64-mingw32-strip --strip-debug -o "$tmp/$name" "$f" 2>/dev/null || cp "$f" "$tmp/$name" ;;
            *) objcopy --strip-debug "$f" "$tmp/$name" 2>/dev/null || cp "$f" "$tmp/$name" ;;
        esac
        echo "file $(sha256sum "$tmp/$name" | cut -d' ' -f1) $name" >>"$tmp/index"
    done
    for name in $register; do
        [ -f "$tmp/$name" ] && echo "register $name" >>"$tmp/index"
    done
    # Rewrite only when something changed, so that the jar (and the cache key) stay the same.
    if [ ! -f "$tmp/index" ]; then
        rm -rf "$tmp" "$dir"
    elif cmp -s "$tmp/index" "$dir/index" 2>/dev/null; then
        rm -rf "$tmp"
    else
        rm -rf "$dir"
        mv "$tmp" "$dir"
    fi
}

lib="$root/build/native/lib"
for f in libopc.so libopc_com.so libopcproxy.so libopccomn_ps.so libopc_sim.so; do
    [ -f "$lib/$f" ] || { echo "stage-natives: $lib/$f is missing (run tools/build.sh)" >&2; exit 1; }
done
stage linux-x86_64 "libopcproxy.so libopccomn_ps.so libopc_sim.so" -- \
    "$lib/libopc.so" "$lib/libopc_com.so" "$lib/libopcproxy.so" "$lib/libopccomn_ps.so" "$lib/libopc_sim.so" \
    "$root/build/native/bin/opc_regsvr"

win="${OPC_WINDOWS_BUILD_DIR:-$root/build/windows}/bin"
if [ "$require_windows" = 1 ]; then
    for f in opc.dll opc_sim.dll; do
        [ -f "$win/$f" ] || { echo "stage-natives: $win/$f is missing (run tools/cross-build.sh)" >&2; exit 1; }
    done
fi
stage windows-x86_64 "" -- "$win/opc.dll" "$win/opc_sim.dll" "$win/opcproxy.dll" "$win/opccomn_ps.dll"
ls "$out"
