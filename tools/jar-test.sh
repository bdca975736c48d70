#!/usr/bin/env bash
# The packaged client as a new user meets it: cli/target/opc.jar run from an empty folder, with no
# library path and no registry setting, and a cache folder (XDG_CACHE_HOME) that holds only another
# jar's extraction, unused for 40 days. The first run extracts the natives into the cache folder,
# registers the simulation server there and removes the other jar's folder; the second reuses them.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jar="$root/cli/target/opc.jar"
[ -f "$jar" ] || { echo "jar-test: $jar is missing (mvn -f reactor/pom.xml package)" >&2; exit 1; }

tmp=$(mktemp -d "${TMPDIR:-/tmp}/opc-jar-test.XXXXXX")
trap 'rm -rf "$tmp"' EXIT
mkdir -p "$tmp/cache" "$tmp/work"
cd "$tmp/work" || exit 1

passed=0
failed=0
# check <name> <expected exit> <pattern the output must match> -- <client arguments>
check() {
    local name=$1 expected=$2 pattern=$3
    shift 4
    local output status
    output=$(env -u OPC_COM_REGISTRY -u LD_LIBRARY_PATH -u JAVA_TOOL_OPTIONS XDG_CACHE_HOME="$tmp/cache" \
        java -jar "$jar" "$@" 2>&1)
    status=$?
    if [ "$status" = "$expected" ] && grep -Eq "$pattern" <<<"$output"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "jar-test: $name failed (exit $status, expected $expected; wanted /$pattern/):" >&2
        echo "$output" | sed 's/^/  | /' >&2
    fi
}

# A folder that another jar extracted and nothing has used for 40 days: the first start removes it.
stale="$tmp/cache/velmora-opc/00000000000000ff/linux-x86_64"
mkdir -p "$stale" && touch "$stale/.lock" "$stale/libopc.so" && echo 00000000000000ff >"$stale/.complete"
touch -d '40 days ago' "$stale/.lock" "$stale/.complete"
check "first status" 0 '^state +running' -- status
[ ! -e "$stale" ] || { failed=$((failed + 1)); echo "jar-test: the stale cache folder was kept" >&2; }
ls "$tmp"/cache/velmora-opc/*/linux-x86_64/com-registry.txt >/dev/null 2>&1 ||
    { failed=$((failed + 1)); echo "jar-test: no registry in the extracted cache" >&2; }
start=$(date +%s%N)
check "second status" 0 '^state +running' -- status
elapsed=$(( ($(date +%s%N) - start) / 1000000 ))
echo "jar-test: status from the extracted cache took $elapsed ms"
check "typed json" 0 '"value" ?: ?-?[0-9]+,' -- --json read Simulation.Ramp.I4
check "unknown server" 1 'try: list the servers' -- --server No.Such.Server.1 status
check "servers" 0 'Velmora\.Simulation\.1' -- servers

echo "jar-test: $passed passed, $failed failed"
[ "$failed" = 0 ]
