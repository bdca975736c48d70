#!/usr/bin/env bash
# Builds opc for 64-bit Windows with mingw-w64 and runs the Windows-capable native tests under Wine.
#
#   tools/cross-build.sh [--no-tests] [--clean]
#
# Output: <build>/bin/opc.dll and the test executables, where <build> is build/windows (or
# $OPC_WINDOWS_BUILD_DIR). The tests run with CTest through wine64 in a private, headless Wine
# prefix at <build>/wineprefix, created on the first run. Exits non-zero on any failure.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${OPC_WINDOWS_BUILD_DIR:-$root/build/windows}
run_tests=1
clean=0
for arg in "$@"; do
    case "$arg" in
        --no-tests) run_tests=0 ;;
        --clean) clean=1 ;;
        *) echo "usage: $0 [--no-tests] [--clean]" >&2; exit 2 ;;
    esac
done

say() { echo "cross-build: $*"; }
die() { echo "cross-build: $*" >&2; exit 1; }

command -v x86_64-w64-mingw32-g++-posix >/dev/null || die "mingw-w64 is not installed (run tools/setup.sh)"
command -v cmake >/dev/null || die "cmake is not installed (run tools/setup.sh)"

# The host JDK supplies jni.h; the win32 jni_md.h comes from native/cmake/win32.
javac_path=$(command -v javac) || die "javac not found: a JDK is needed for jni.h (run tools/setup.sh)"
host_jdk=$(dirname "$(dirname "$(readlink -f "$javac_path")")")
[ -f "$host_jdk/include/jni.h" ] || die "no jni.h under $host_jdk/include"

source "$root/tools/wine.sh"

[ "$clean" = 1 ] && rm -rf "$build"
mkdir -p "$build"

configure=(cmake -S "$root" -B "$build"
    -DCMAKE_TOOLCHAIN_FILE="$root/native/cmake/mingw-w64.cmake"
    -DCMAKE_BUILD_TYPE=Release
    -DOPC_HOST_JDK="$host_jdk")
if [ ! -f "$build/CMakeCache.txt" ] && command -v ninja >/dev/null; then
    configure+=(-G Ninja)
fi
wine64=""
if [ "$run_tests" = 1 ]; then
    wine64=$(wine_find64) || die "wine64 not found (run tools/setup.sh)"
    configure+=(-DOPC_WINE64="$wine64")
fi

say "configuring $build (JDK $host_jdk)"
"${configure[@]}" >"$build/configure.log" 2>&1 || { cat "$build/configure.log" >&2; die "configure failed"; }

say "building"
cmake --build "$build" --parallel "$(nproc 2>/dev/null || echo 2)" >"$build/build.log" 2>&1 ||
    { tail -n 60 "$build/build.log" >&2; die "build failed (full log: $build/build.log)"; }
grep -E 'warning:' "$build/build.log" | sort -u | head -n 20 || true

dll="$build/bin/opc.dll"
if [ -f "$dll" ]; then
    # The compiler runtime (libgcc_s_seh-1, libstdc++-6, libwinpthread-1) is linked statically:
    # opc.dll and the modules the Java suite loads import system DLLs only.
    for module in "$dll" "$build"/bin/opc_sim.dll "$build"/bin/opc_testsupport.dll "$build"/bin/opc_bench.dll; do
        [ -f "$module" ] || die "no $module was built"
        imports=$(x86_64-w64-mingw32-objdump -p "$module" | awk '/DLL Name:/ { print $3 }')
        runtime=$(grep -iE '^lib.*\.dll$' <<<"$imports" || true)
        [ -z "$runtime" ] || die "$(basename "$module") imports compiler runtime DLLs: $(echo $runtime)"
    done
    "$root/tools/check-exports.sh" "$dll"
else
    say "note: no opc.dll was built"
fi

[ "$run_tests" = 1 ] || exit 0

# A private, headless Wine prefix; its first start takes a few seconds.
wine_prefix "$build/wineprefix" || die "no Wine prefix"

say "running the native tests under Wine"
# One test at a time: a fresh prefix has been seen to hang two first processes started together.
# A process that Wine itself leaves hanging is given one more try; a failing test fails at once.
ctest --test-dir "$build" --output-on-failure --timeout 60 --repeat after-timeout:2 ||
    die "native tests failed under Wine"
