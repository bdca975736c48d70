#!/usr/bin/env bash
# The command-line client against the simulation server, run from its jar (cli/target/opc.jar),
# which carries the natives. With no arguments it shows the server's status and a few live values;
# otherwise the arguments go to the client as they are (try --help).
#
# The first run builds everything (tools/build.sh, tools/stage-natives.sh, the Maven reactor); later
# runs start the jar at once unless a source, build file or Windows DLL is newer than it.
set -euo pipefail
cd "$(dirname "$0")/.."
jar=cli/target/opc.jar

stale() {
    [ -f "$jar" ] || return 0
    shopt -s nullglob
    local inputs=(native src/main cli/src/main cli/pom.xml pom.xml reactor/pom.xml CMakeLists.txt
        tools/build.sh tools/stage-natives.sh build/windows/bin/*.dll)
    shopt -u nullglob
    [ -n "$(find "${inputs[@]}" -newer "$jar" -print -quit 2>/dev/null)" ]
}

if stale; then
    bash tools/build.sh >/dev/null
    bash tools/stage-natives.sh >/dev/null
    mvn -B -q -Dstyle.color=never -f reactor/pom.xml -DskipTests package >/dev/null 2>&1 ||
        mvn -B -Dstyle.color=never -f reactor/pom.xml -DskipTests package
    touch "$jar"
fi

if [ $# -eq 0 ]; then
    bash cli/opc status
    echo
    exec bash cli/opc read Simulation.Sine.R8 Simulation.Ramp.I4 Simulation.Random.R8 Simulation.Static.BSTR \
        Simulation.Array.R8 Simulation.Quality.Uncertain Simulation.Unsupported.DATE
fi
exec bash cli/opc "$@"
