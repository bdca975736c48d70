#!/usr/bin/env bash
# The native tests (fuzz replays included) and the Java suite once more, against every native library
# built with AddressSanitizer and UndefinedBehaviorSanitizer (build/sanitize). The JVM itself is not
# instrumented: the sanitizer runtimes are preloaded into it, with SIGSEGV left to the JVM, which uses
# it itself. Any sanitizer report fails the run.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh

flags="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
cmake -S . -B build/sanitize -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_MODULE_LINKER_FLAGS="-fsanitize=address,undefined" >/dev/null
cmake --build build/sanitize

reports="$PWD/build/sanitize/reports"
rm -rf "$reports"
mkdir -p "$reports"
export ASAN_OPTIONS="handle_segv=0:detect_leaks=0:allow_user_segv_handler=1:log_path=$reports/asan"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:log_path=$reports/ubsan"

check_reports() {
    if compgen -G "$reports/*" >/dev/null; then
        echo "sanitize: sanitizer reports after $1:" >&2
        cat "$reports"/* >&2
        exit 1
    fi
}

echo "== native tests under AddressSanitizer and UndefinedBehaviorSanitizer"
ctest --test-dir build/sanitize --output-on-failure -j 2
check_reports "the native tests"

echo "== java tests under AddressSanitizer and UndefinedBehaviorSanitizer"
LD_PRELOAD="$(gcc -print-file-name=libasan.so) $(gcc -print-file-name=libubsan.so)" \
    bash tools/java-test.sh -Dopc.native.dir="$PWD/build/sanitize/lib"
check_reports "the java tests"
echo "sanitize: no sanitizer reports"
