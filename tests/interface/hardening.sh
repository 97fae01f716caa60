#!/bin/sh
# Looks for the hardening of a built program or library: hardening.sh FILE
# ELF: addresses relocated at the start and then read-only, position-independent code, no executable stack, stack
# protection, checked string functions, landing pads for indirect calls. PE: addresses chosen anew at each start, from all
# 64 bits, and no execution of data.
set -eu
file=$1
status=0

want() { # WHAT COMMAND...
    what=$1
    shift
    if ! "$@"; then
        echo "$file: no $what"
        status=1
    fi
}

has() { # PATTERN, in what a tool prints
    printf '%s\n' "$printed" | grep -qE "$1"
}

case $file in
*.dll | *.exe)
    printed=$(x86_64-w64-mingw32-objdump -p "$file")
    want "address from all 64 bits" has '^\s+HIGH_ENTROPY_VA'
    want "address of its own at each start" has '^\s+DYNAMIC_BASE'
    want "protection of data from execution" has '^\s+NX_COMPAT'
    ;;
*)
    printed=$(readelf -hldW "$file")
    want "position-independent code" has 'Type:\s+DYN'
    want "read-only relocations" has 'GNU_RELRO'
    want "relocation at the start" has '\((FLAGS|FLAGS_1|BIND_NOW)\).*(BIND_NOW|NOW)'
    want "stack that is not executable" has 'GNU_STACK.* RW  '
    printed=$(nm -D --undefined-only "$file")
    want "stack protection" has '__stack_chk_(fail|guard)'
    want "checked functions of the C run-time library" has '__[a-z]+_chk'
    # A landing pad stands first in every function that others may call: those exported, or a program's main.
    case $(readelf -h "$file") in
    *AArch64*) objdump=aarch64-linux-gnu-objdump pad='bti|paciasp' ;;
    *) objdump=objdump pad=endbr64 ;;
    esac
    case $file in
    *.so | *.so.*) table=$(nm -D --defined-only "$file") ;;
    *) table=$(nm "$file" | grep ' main$') ;;
    esac
    starts=$(printf '%s\n' "$table" | awk '$2 == "T" { sub(/^0+/, "", $1); print $1 }' | sort -u)
    printed=$($objdump -d --no-show-raw-insn "$file" | awk -v starts="$starts" -v pad="$pad" '
        BEGIN { count = split(starts, list); for (i in list) wanted[list[i] ":"] = 1 }
        $1 in wanted && $2 ~ pad { found++ }
        END { print found + 0, "of", count }')
    want "landing pads: $printed" [ "${printed% of *}" = "${printed#* of }" ]
    ;;
esac
[ $status -ne 0 ] || echo "$file is hardened"
exit $status
