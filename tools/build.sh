#!/usr/bin/env bash
# Builds the native side (library, substrate, simulation server, native tests) into build/native.
set -euo pipefail
cd "$(dirname "$0")/.."
bash tools/setup.sh
cmake -S . -B build/native -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build/native
