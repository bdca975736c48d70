#!/usr/bin/env bash
# Checks that a built opc library exports its Java natives and nothing else.
#
#   tools/check-exports.sh [--all] [--natives FILE] LIBRARY...
#
# LIBRARY is a Linux shared object (its dynamic symbol table, read with nm -D) or a Windows DLL
# (its export table, read with the mingw-w64 objdump). Every exported name must be one of the
# natives listed in tools/natives.txt; a symbol of any other name, an export without a name, or a
# name exported twice is an error. With --all every listed native must be exported as well.
# Prints one line per library with the count; exits non-zero on the first library that fails
# (after checking them all).
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
natives_file="$here/natives.txt"
require_all=0
libraries=()

usage() {
    echo "usage: $0 [--all] [--natives FILE] LIBRARY..." >&2
    exit 2
}

while [ $# -gt 0 ]; do
    case "$1" in
        --all) require_all=1 ;;
        --natives) [ $# -ge 2 ] || usage; natives_file=$2; shift ;;
        -h|--help) usage ;;
        --) shift; libraries+=("$@"); break ;;
        -*) echo "check-exports: unknown option $1" >&2; usage ;;
        *) libraries+=("$1") ;;
    esac
    shift
done
[ ${#libraries[@]} -gt 0 ] || usage
[ -r "$natives_file" ] || { echo "check-exports: cannot read $natives_file" >&2; exit 2; }

objdump_pe=${OBJDUMP_PE:-x86_64-w64-mingw32-objdump}
work=$(mktemp -d "${TMPDIR:-/tmp}/check-exports.XXXXXX")
trap 'rm -rf "$work"' EXIT

grep -v -e '^[[:space:]]*#' -e '^[[:space:]]*$' "$natives_file" | tr -d '[:blank:]\r' | sort -u >"$work/natives"
natives_count=$(wc -l <"$work/natives")

# The kind of a file from its first bytes: elf, pe or unknown.
file_kind() {
    local magic
    magic=$(head -c 4 "$1" | od -An -tx1 | tr -d ' \n')
    case "$magic" in
        7f454c46) echo elf ;;
        4d5a*) echo pe ;;
        *) echo unknown ;;
    esac
}

# Exported names of an ELF shared object, one a line, symbol versions removed.
elf_exports() {
    nm -D --defined-only "$1" | awk 'NF >= 3 { print $3 } NF == 2 { print $2 }' | sed 's/@.*//'
}

# Exported names of a PE DLL, one a line; an export without a name is printed as "<ordinal N>".
pe_exports() {
    "$objdump_pe" -p "$1" >"$work/pe.txt"
    if ! grep -q 'There is an export table' "$work/pe.txt"; then
        return 0
    fi
    local names addresses
    # "[Ordinal/Name Pointer] Table" lists "[ index] name"; the address table lists every export.
    awk '/^\[Ordinal\/Name Pointer\] Table/ { on = 1; next }
         on && /^[[:space:]]*$/ { on = 0 }
         on && /^[[:space:]]*\[/ { sub(/^[[:space:]]*\[[[:space:]]*[0-9]+\][[:space:]]*/, ""); print }' \
        "$work/pe.txt"
    names=$(awk '/^\[Ordinal\/Name Pointer\] Table/ { on = 1; next }
                 on && /^[[:space:]]*$/ { on = 0 }
                 on && /^[[:space:]]*\[/ { n++ } END { print n + 0 }' "$work/pe.txt")
    addresses=$(awk '/^Export Address Table -- / { on = 1; next }
                     on && /^[[:space:]]*$/ { on = 0 }
                     on && /^[[:space:]]*\[/ { n++ } END { print n + 0 }' "$work/pe.txt")
    local i
    for ((i = names; i < addresses; i++)); do
        echo "<ordinal export without a name>"
    done
}

status=0
for lib in "${libraries[@]}"; do
    if [ ! -f "$lib" ]; then
        echo "check-exports: $lib: no such file" >&2
        status=1
        continue
    fi
    case $(file_kind "$lib") in
        elf) elf_exports "$lib" >"$work/exports" ;;
        pe) pe_exports "$lib" >"$work/exports" ;;
        *) echo "check-exports: $lib: neither an ELF shared object nor a PE DLL" >&2; status=1; continue ;;
    esac

    failed=0
    dupes=$(sort "$work/exports" | uniq -d)
    if [ -n "$dupes" ]; then
        echo "check-exports: $lib: exported more than once:" >&2
        sed 's/^/  /' <<<"$dupes" >&2
        failed=1
    fi
    sort -u "$work/exports" >"$work/exports.sorted"
    foreign=$(grep -v '^Java_' "$work/exports.sorted" || true)
    if [ -n "$foreign" ]; then
        echo "check-exports: $lib: exports $(wc -l <<<"$foreign") symbols that are not Java natives:" >&2
        head -n 20 <<<"$foreign" | sed 's/^/  /' >&2
        failed=1
    fi
    unknown=$(grep '^Java_' "$work/exports.sorted" | comm -23 - "$work/natives" || true)
    if [ -n "$unknown" ]; then
        echo "check-exports: $lib: exports Java natives that are not in $(basename "$natives_file"):" >&2
        sed 's/^/  /' <<<"$unknown" >&2
        failed=1
    fi
    count=$(comm -12 "$work/exports.sorted" "$work/natives" | wc -l)
    if [ "$require_all" = 1 ]; then
        missing=$(comm -13 "$work/exports.sorted" "$work/natives")
        if [ -n "$missing" ]; then
            echo "check-exports: $lib: $(wc -l <<<"$missing") natives are not exported:" >&2
            sed 's/^/  /' <<<"$missing" >&2
            failed=1
        fi
    fi
    if [ "$failed" = 0 ]; then
        echo "check-exports: $lib: $count of $natives_count natives exported, nothing else"
    else
        echo "check-exports: $lib: FAILED ($count of $natives_count natives exported)" >&2
        status=1
    fi
done
exit $status
