#!/usr/bin/env bash
# Builds everything and runs the benchmarks on OpenJDK 17 against the simulation server. Each prints
# its figures and the ratio to a floor measured in the same run. Figures only: nothing is asserted.
#
#   bash tools/bench.sh                    # all of them, default rounds
#   bash tools/bench.sh read [W R]         # synchronous read of 10,000 items (W warm-up, R measured rounds)
#   bash tools/bench.sh delivery [W R N]   # data changes of 10,000 items (N attach-and-detach pairs)
#   bash tools/bench.sh write [W R]        # batch write of 10,000 mixed items, writeArray and writeAsync
#   bash tools/bench.sh async [W R]        # asynchronous read of 10,000 items
#   bash tools/bench.sh browse [W R E P]   # browse of E elements (P per answer), IOPCBrowse and getItems
#   bash tools/bench.sh small [W R]        # data changes of 1 to 10,000 items per callback
#   bash tools/bench.sh memory [C D]       # C read calls and D delivered changes: resident set and ledger
#   bash tools/bench.sh outproc [W R]      # read and data changes in process, then out of process: Windows
#                                          # JVM under Wine (tools/bench-outproc.sh), not part of "all"
#
# The benchmark library (libopc_bench) is built beside libopc in build/native/lib.
set -euo pipefail
cd "$(dirname "$0")/.."

which=${1:-all}
[ $# -gt 0 ] && shift

[ "$which" = outproc ] || bash tools/build.sh >/dev/null
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

[ "$which" = outproc ] || "$java" -version 2>&1 | head -1
# The memory run has a fixed, pre-touched heap and one glibc arena, so that the resident set shows what
# native code keeps: with glibc's default, threads that meet in malloc get arenas of their own, a
# one-time step of up to about 1 MB that lands at whichever sample it happens to.
memory=(-Xms128m -Xmx128m -XX:+AlwaysPreTouch)
memory_run() { MALLOC_ARENA_MAX=1 run "${memory[@]}" com.velmora.opc.bench.MemoryBench "$@"; }
case "$which" in
    read) run com.velmora.opc.bench.SyncReadBench "$@" ;;
    delivery) run com.velmora.opc.bench.DeliveryBench "$@" ;;
    write) run com.velmora.opc.bench.WriteBench "$@" ;;
    async) run com.velmora.opc.bench.AsyncReadBench "$@" ;;
    browse) run com.velmora.opc.bench.BrowseBench "$@" ;;
    small) run com.velmora.opc.bench.SmallUpdatesBench "$@" ;;
    memory) memory_run "$@" ;;
    outproc) bash tools/bench-outproc.sh "$classes" "$@" ;;
    all)
        for main in SyncReadBench DeliveryBench WriteBench AsyncReadBench BrowseBench SmallUpdatesBench; do
            run com.velmora.opc.bench.$main
            echo
        done
        memory_run
        ;;
    *) echo "usage: tools/bench.sh [all | read | delivery | write | async | browse | small | memory | outproc] [arguments]" >&2
       exit 2 ;;
esac
