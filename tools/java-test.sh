#!/usr/bin/env bash
# Runs the Java tests (mvn -B test, arguments passed through) and fails when a forked JVM printed
# any JNI warning. The tests run with -Xcheck:jni, whose warnings go to the JVM's native stdout:
# surefire copies such output into the console log and into target/surefire-reports/*.dumpstream.
#
#   tools/java-test.sh                          # libraries from build/native/lib
#   tools/java-test.sh -f reactor/pom.xml package -Dtest='com.velmora.opc.cli.**' \
#       -Dsurefire.failIfNoSpecifiedTests=false  # the command-line client's suite, and its jar
#   tools/java-test.sh -Dopc.native.dir=DIR     # libraries from DIR
#   JAVA_HOME=/usr/lib/jvm/... tools/java-test.sh
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 2

log="$root/target/java-test.log"
reports=("$root/target/surefire-reports" "$root/cli/target/surefire-reports")
mkdir -p "$root/target"
for r in "${reports[@]}"; do rm -f "$r"/*.dumpstream "$r"/*.dump 2>/dev/null; done

mvn -B test "$@" 2>&1 | tee "$log"
status=${PIPESTATUS[0]}

patterns='WARNING in native method|JNI local refs|exceeds capacity|FATAL ERROR in native method'
found=$(grep -E -h "$patterns" "$log" "${reports[0]}"/*.dumpstream "${reports[1]}"/*.dumpstream 2>/dev/null |
    sort | uniq -c)
if [ -n "$found" ]; then
    echo "java-test: JNI warnings were printed by the test JVM:" >&2
    echo "$found" >&2
    exit 1
fi
if [ "$status" -ne 0 ]; then
    echo "java-test: mvn test failed (exit $status)" >&2
    exit "$status"
fi
echo "java-test: no JNI warnings"
