#!/usr/bin/env bash
# Installs what building and testing opc needs on a Debian 12 machine: the native toolchain,
# GoogleTest, a JDK 17 with Maven, the mingw-w64 cross compiler and Wine for the Windows build, with
# Wine's IDL compiler (widl, in wine64-tools) for the proxy/stub modules.
#
# Idempotent and quiet: packages already installed are skipped (one dpkg query), and the package
# lists are refreshed only when something is missing, so a second run takes about a second.
# Run it as root, or as a user with sudo. It may be executed or sourced; sourcing it leaves the
# caller's shell options alone.
#
#   bash tools/setup.sh            install what is missing
#   bash tools/setup.sh --check    only report what is missing (exit status 1 when anything is)

opc_setup_packages=(
    build-essential
    cmake
    ninja-build
    pkg-config
    libgtest-dev
    googletest
    openjdk-17-jdk-headless
    maven
    g++-mingw-w64-x86-64
    binutils-mingw-w64-x86-64
    wine
    wine64
    python3-pip
    wine64-tools
)

# Prints the packages of the list that are not fully installed, one a line.
opc_setup_missing() {
    local installed
    installed=$(dpkg-query -W -f='${Package} ${Status}\n' "${opc_setup_packages[@]}" 2>/dev/null |
        awk '$NF == "installed" && $(NF-1) == "ok" { print $1 }')
    local p
    for p in "${opc_setup_packages[@]}"; do
        grep -qxF "$p" <<<"$installed" || echo "$p"
    done
}

opc_setup() {
    local check_only=0
    [ "${1:-}" = "--check" ] && check_only=1

    if ! command -v dpkg-query >/dev/null 2>&1; then
        echo "setup: this script expects a Debian system (dpkg-query not found)" >&2
        return 2
    fi

    local missing
    missing=$(opc_setup_missing)
    if [ -z "$missing" ]; then
        return 0
    fi
    # shellcheck disable=SC2086
    set -- $missing
    if [ "$check_only" = 1 ]; then
        echo "setup: missing packages: $*" >&2
        return 1
    fi

    local sudo=""
    if [ "$(id -u)" != 0 ]; then
        if command -v sudo >/dev/null 2>&1; then
            sudo="sudo"
        else
            echo "setup: not root and no sudo; install these packages: $*" >&2
            return 1
        fi
    fi

    echo "setup: installing $*" >&2
    local log
    log=$(mktemp "${TMPDIR:-/tmp}/opc-setup.XXXXXX")
    if ! $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q >"$log" 2>&1; then
        cat "$log" >&2
        echo "setup: apt-get update failed" >&2
        rm -f "$log"
        return 1
    fi
    if ! $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q \
            -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold "$@" >>"$log" 2>&1; then
        cat "$log" >&2
        echo "setup: apt-get install failed" >&2
        rm -f "$log"
        return 1
    fi
    rm -f "$log"

    missing=$(opc_setup_missing)
    if [ -n "$missing" ]; then
        echo "setup: still missing after install: $(echo $missing)" >&2
        return 1
    fi
    echo "setup: done" >&2
    return 0
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
    opc_setup "$@"
    exit $?
else
    opc_setup "$@"
fi
