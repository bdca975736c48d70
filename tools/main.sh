#!/usr/bin/env bash
# The command-line client against the embedded simulation server.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/build.sh
mvn -B -q -DskipTests package
exec java -Xcheck:jni -Dopc.library.path=build/native/lib -cp target/classes com.velmora.opc.cli.Main "$@"
