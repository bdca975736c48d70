#!/usr/bin/env bash
# Builds the fuzz targets (native/tests/fuzz) as libFuzzer binaries with Debian's clang,
# AddressSanitizer and UndefinedBehaviorSanitizer (build/fuzz, every library instrumented), and runs
# each from a copy of its checked-in corpus for the given number of executions. New findings are
# written to build/fuzz/findings. The test command only replays the corpus; this is run by hand.
#
#   tools/fuzz.sh [runs] [target...]     runs defaults to 10000000; targets: value_parse value_text guid_text
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh

missing=$(dpkg-query -W -f='${Package} ${Status}\n' clang libclang-rt-14-dev 2>/dev/null |
    awk '$NF != "installed"' || true)
if ! command -v clang++ >/dev/null 2>&1 || ! dpkg-query -W libclang-rt-14-dev >/dev/null 2>&1 || [ -n "$missing" ]; then
    sudo=""
    [ "$(id -u)" != 0 ] && sudo=sudo
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q >/dev/null
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q clang libclang-rt-14-dev >/dev/null
fi

runs=${1:-10000000}
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(value_parse value_text guid_text)

flags="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fsanitize=fuzzer-no-link -fno-omit-frame-pointer"
cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DOPC_FUZZ=ON \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fsanitize=address,undefined" \
    -DCMAKE_MODULE_LINKER_FLAGS="-fsanitize=address,undefined" >/dev/null
cmake --build build/fuzz --target "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS="detect_leaks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
mkdir -p build/fuzz/findings
for t in "${targets[@]}"; do
    work="build/fuzz/corpus/$t"
    mkdir -p "$work"
    cp -n native/tests/fuzz/corpus/"$t"/* "$work"/
    echo "== fuzz_$t: $runs executions"
    status=0
    build/fuzz/bin/fuzz_"$t" -runs="$runs" -max_len=512 -print_final_stats=1 \
        -artifact_prefix=build/fuzz/findings/"$t"- "$work" >build/fuzz/"$t".log 2>&1 || status=$?
    grep -E '^(stat::|#[0-9]+ +DONE|SUMMARY)' build/fuzz/"$t".log || true
    [ "$status" -eq 0 ] || { tail -n 40 build/fuzz/"$t".log >&2; echo "fuzz_$t found a fault: see build/fuzz/findings" >&2; exit 1; }
done
