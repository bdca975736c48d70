#!/usr/bin/env bash
# Fails when a Windows module imports anything but system DLLs (the compiler runtime is linked in
# statically; opc_sim.dll is this project's own and ships beside the server executable).
set -euo pipefail
status=0
for module in "$@"; do
    imports=$(x86_64-w64-mingw32-objdump -p "$module" | awk '/DLL Name:/ { print $3 }')
    for dll in $imports; do
        case "${dll,,}" in
            kernel32.dll|msvcrt.dll|rpcrt4.dll|oleaut32.dll|ole32.dll|advapi32.dll|user32.dll|opc_sim.dll) ;;
            *) echo "$(basename "$module") imports $dll"; status=1 ;;
        esac
    done
done
exit $status
