#!/usr/bin/env bash
# Every test: native unit tests, the export check, the Windows cross-build with its tests under Wine,
# and the Java suite under -Xcheck:jni.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/build.sh
echo "== native tests"
ctest --test-dir build/native --output-on-failure -j 2
echo "== exports"
bash tools/check-exports.sh build/native/lib/libopc.so
echo "== windows cross-build"
bash tools/cross-build.sh
echo "== java tests"
bash tools/java-test.sh
