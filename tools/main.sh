#!/usr/bin/env bash
# The command-line client against the embedded simulation server. With no arguments it shows the
# server's status and a few live values; otherwise the arguments go to the client as they are
# (try --help).
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/build.sh >/dev/null
mvn -B -q -Dstyle.color=never -DskipTests package >/dev/null 2>&1 || mvn -B -Dstyle.color=never -DskipTests package
run() {
    java -Dopc.library.path=build/native/lib --enable-native-access=ALL-UNNAMED \
        -cp target/classes com.velmora.opc.cli.Main "$@"
}
if [ $# -eq 0 ]; then
    run status
    echo
    run read Simulation.Sine.R8 Simulation.Ramp.I4 Simulation.Random.R8 Simulation.Static.BSTR \
        Simulation.Array.R8 Simulation.Quality.Uncertain Simulation.Unsupported.DATE
else
    run "$@"
fi
