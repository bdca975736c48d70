#!/usr/bin/env bash
# Builds everything and runs the two benchmarks on OpenJDK 17 against the simulation server:
# the synchronous read of 10,000 items and the data-change delivery of 10,000 items. Each prints its
# figures and the ratio to a floor measured in the same run. Figures only: nothing is asserted.
#
#   bash tools/bench.sh                    # both, default rounds
#   bash tools/bench.sh read [W R]         # the synchronous read only (W warm-up, R measured rounds)
#   bash tools/bench.sh delivery [W R N]   # the delivery only (N attach-and-detach pairs)
#
# The benchmark library (libopc_bench) is built beside libopc in build/native/lib.
set -euo pipefail
cd "$(dirname "$0")/.."

which=${1:-all}
[ $# -gt 0 ] && shift

bash tools/build.sh >/dev/null
classes=target/classes:target/test-classes
mkdir -p target
if ! mvn -B -q -DskipTests test-compile >target/bench-compile.log 2>&1; then
    # The test tree does not compile as a whole: the benchmark mains need only the main sources.
    echo "bench: mvn test-compile failed (target/bench-compile.log); compiling the benchmarks alone" >&2
    classes=target/bench-classes
    rm -rf "$classes"
    javac --release 17 -nowarn -d "$classes" $(find src/main/java -name '*.java') \
        $(ls src/bench/java/com/velmora/opc/bench/*.java)
fi

java=java
[ -x /usr/lib/jvm/java-17-openjdk-amd64/bin/java ] && java=/usr/lib/jvm/java-17-openjdk-amd64/bin/java
run() {
    "$java" -Dopc.library.path=build/native/lib -cp "$classes" "$@"
}

"$java" -version 2>&1 | head -1
case "$which" in
    read) run com.velmora.opc.bench.SyncReadBench "$@" ;;
    delivery) run com.velmora.opc.bench.DeliveryBench "$@" ;;
    all)
        run com.velmora.opc.bench.SyncReadBench
        echo
        run com.velmora.opc.bench.DeliveryBench
        ;;
    *) echo "usage: tools/bench.sh [all | read [W R] | delivery [W R N]]" >&2; exit 2 ;;
esac
