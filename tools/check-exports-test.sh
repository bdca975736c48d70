#!/usr/bin/env bash
# Tests of tools/check-exports.sh: small libraries are built with the host compiler (ELF) and the
# mingw-w64 compiler (PE), each exporting a known set of symbols, and the checker's verdict on
# each is compared with the expected one. The PE half is skipped when mingw-w64 is missing.
set -uo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
check="$here/check-exports.sh"
work=$(mktemp -d "${TMPDIR:-/tmp}/check-exports-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
failures=0

fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

# expect STATUS PATTERN ARGS...: runs the checker; its exit status must be STATUS and its output
# must contain PATTERN (a fixed string).
expect() {
    local want=$1 pattern=$2 got
    shift 2
    "$check" "$@" >"$work/out" 2>&1
    got=$?
    if [ "$got" != "$want" ]; then
        fail "check-exports $* exited $got, expected $want:"
        sed 's/^/    /' "$work/out" >&2
    elif ! grep -qF -- "$pattern" "$work/out"; then
        fail "check-exports $*: output lacks '$pattern':"
        sed 's/^/    /' "$work/out" >&2
    fi
}

cat >"$work/lib.cpp" <<'EOF'
#include <string>
#include <vector>
#ifdef _WIN32
#define EXPORTED __declspec(dllexport)
#else
#define EXPORTED __attribute__((visibility("default")))
#endif
extern "C" EXPORTED int Java_com_velmora_opc_OpcEnv_initEnv() { return 1; }
extern "C" EXPORTED int Java_com_velmora_opc_OpcEnv_initThread() {
    std::vector<std::string> texts(3);   // template instances that must not leak into the exports
    return int(texts.size());
}
#ifdef WITH_HELPER
extern "C" EXPORTED int helper() { return 2; }
#endif
#ifdef WITH_UNLISTED
extern "C" EXPORTED int Java_com_velmora_opc_OpcEnv_notANative() { return 3; }
#endif
EOF
printf '{ global: Java_*; local: *; };\n' >"$work/exports.map"
grep -v '^#' "$here/natives.txt" | grep . | head -n 2 >"$work/two-natives.txt"

# Linux shared objects.
cxx=${CXX:-g++}
build_so() { "$cxx" -shared -fPIC -fvisibility=hidden -o "$work/$1" "$work/lib.cpp" "${@:2}"; }
build_so good.so -Wl,--version-script="$work/exports.map" || fail "cannot build good.so"
build_so helper.so -DWITH_HELPER -fvisibility-inlines-hidden || fail "cannot build helper.so"
build_so unscripted.so || fail "cannot build unscripted.so"
build_so unlisted.so -DWITH_UNLISTED -Wl,--version-script="$work/exports.map" || fail "cannot build unlisted.so"

expect 0 "2 of 52 natives exported, nothing else" "$work/good.so"
expect 1 "helper" "$work/helper.so"
# Hidden visibility alone leaves weak template instances exported.
expect 1 "not Java natives" "$work/unscripted.so"
expect 1 "Java_com_velmora_opc_OpcEnv_notANative" "$work/unlisted.so"
expect 1 "50 natives are not exported" --all "$work/good.so"
expect 0 "2 of 2 natives exported" --all --natives "$work/two-natives.txt" "$work/good.so"
# Every library is checked and reported even after one has failed.
expect 1 "good.so: 2 of 52" "$work/helper.so" "$work/good.so"

# Windows DLLs.
mingw=x86_64-w64-mingw32-g++-posix
if command -v "$mingw" >/dev/null; then
    build_dll() { "$mingw" -shared -static -o "$work/$1" "$work/lib.cpp" "${@:2}"; }
    build_dll good.dll || fail "cannot build good.dll"
    build_dll helper.dll -DWITH_HELPER || fail "cannot build helper.dll"
    printf 'EXPORTS\nJava_com_velmora_opc_OpcEnv_initEnv\nJava_com_velmora_opc_OpcEnv_initThread\nhelper @7 NONAME\n' >"$work/noname.def"
    build_dll noname.dll -DWITH_HELPER "$work/noname.def" || fail "cannot build noname.dll"

    expect 0 "2 of 52 natives exported, nothing else" "$work/good.dll"
    expect 1 "helper" "$work/helper.dll"
    expect 1 "<ordinal export without a name>" "$work/noname.dll"
    expect 1 "50 natives are not exported" --all "$work/good.dll"
else
    echo "check-exports-test: $mingw not found, Windows DLL cases skipped"
fi

# Neither ELF nor PE, and a missing file.
expect 1 "neither an ELF shared object nor a PE DLL" "$work/lib.cpp"
expect 1 "no such file" "$work/absent.so"
expect 2 "usage" --bogus "$work/good.so"

if [ "$failures" -gt 0 ]; then
    echo "check-exports-test: $failures failures" >&2
    exit 1
fi
echo "check-exports-test: all cases passed"
