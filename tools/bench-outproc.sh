#!/usr/bin/env bash
# The out-of-process benchmark (OutOfProcessBench) in a Windows JVM under Wine: the synchronous read
# and the data changes of 10,000 items against the simulation server in the JVM's process, then in a
# process of its own; items per second and the ratio of the two. Figures only: nothing is asserted.
#
#   bash tools/bench.sh outproc [W R]   # W warm-up and R measured rounds (reads) and updates (changes)
#
# Called by tools/bench.sh with the class path it compiled (the main and the benchmark classes).
# Builds the Windows modules (tools/cross-build.sh --no-tests), fetches the Windows Java runtime once
# (tools/windows-java.sh) and runs the benchmark in a fresh Wine prefix of its own,
# build/windows-java/bench-prefix, with the simulation server registered in-process; the benchmark
# registers the local server for its second half and the in-process module again at the end.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
classes=$1
shift
bin=${OPC_WINDOWS_BUILD_DIR:-$root/build/windows}/bin
cache=$root/build/windows-java

say() { echo "bench outproc: $*"; }
die() { echo "bench outproc: $*" >&2; exit 1; }

mkdir -p "$cache"
say "cross-building the Windows modules (log: $cache/bench-cross-build.log)"
bash "$root/tools/cross-build.sh" --no-tests >"$cache/bench-cross-build.log" 2>&1 ||
    { tail -n 30 "$cache/bench-cross-build.log" >&2; die "cross-build failed"; }
for f in opc.dll opc_sim.dll opc_bench.dll opcproxy.dll opccomn_ps.dll opc_sim_server.exe; do
    [ -f "$bin/$f" ] || die "no $bin/$f after the cross-build"
done

source "$root/tools/wine.sh"
source "$root/tools/windows-java.sh"
jre=$cache/jre
windows_java_runtime "$jre" || die "no Windows Java runtime"
windows_java_prefix "$cache/bench-prefix" "$bin" || die "no Wine prefix"

# initEnv loads opcproxy.dll and opccomn_ps.dll through the DLL search path, which holds Wine's PATH.
w_bin=$(wine_path "$bin")
export WINEPATH="$w_bin"
cp=""
IFS=: read -r -a parts <<<"$classes"
for part in "${parts[@]}"; do
    cp="$cp${cp:+;}$(wine_path "$(cd "$root" && readlink -f "$part")")"
done
jvm=("$WINE64" "$jre/bin/java.exe" -XX:ActiveProcessorCount=2 --enable-native-access=ALL-UNNAMED
     "-Dopc.library.path=$w_bin" "-Dopc.native.dir=$w_bin")
# Wine lacks an iphlpapi function that the JDK's SecureRandom seeding calls: the tests' generator.
security=$root/target/test-classes/windows-test.security
[[ ":$classes:" == *:target/test-classes:* ]] && [ -f "$security" ] && jvm+=("-Djava.security.properties=$(wine_path "$security")")

echo "load average: $(cut -d' ' -f1-3 /proc/loadavg) (before the run)"
(cd "$cache" && "${jvm[@]}" -cp "$cp" com.velmora.opc.bench.OutOfProcessBench "$@") 2>&1 | tr -d '\r'
status=${PIPESTATUS[0]}
echo "load average: $(cut -d' ' -f1-3 /proc/loadavg) (after the run)"
exit "$status"
