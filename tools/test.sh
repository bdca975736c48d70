#!/usr/bin/env bash
# Every test: native unit tests, the export check, the Windows cross-build with its tests under Wine,
# the Java suite under -Xcheck:jni on the machine's JDK 17 and, where present, a newer JDK, the
# command-line client (its own suite, then its packaged jar as a new user runs it), the Java suite in
# a Windows JVM under Wine, and both suites once more against sanitizer builds of the libraries.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/build.sh
echo "== native tests"
ctest --test-dir build/native --output-on-failure -j 2
echo "== windows cross-build"
bash tools/cross-build.sh
echo "== exports: all natives, nothing else"
bash tools/check-exports.sh --all build/native/lib/libopc.so build/windows/bin/opc.dll
echo "== java tests"
bash tools/stage-natives.sh >/dev/null
bash tools/java-test.sh
newer=$(ls -d /usr/lib/jvm/temurin-*-jdk* 2>/dev/null | sort -V | tail -n 1 || true)
if [ -n "$newer" ] && [ -x "$newer/bin/java" ]; then
    echo "== java tests on $(basename "$newer")"
    JAVA_HOME="$newer" bash tools/java-test.sh
fi
echo "== command-line client"
bash tools/java-test.sh -f reactor/pom.xml package -Dtest='com.velmora.opc.cli.**' -Dsurefire.failIfNoSpecifiedTests=false
bash tools/jar-test.sh
echo "== java tests on Windows (Wine)"
bash tools/windows-java-test.sh
bash tools/sanitize.sh
