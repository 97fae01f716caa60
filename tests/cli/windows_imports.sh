#!/bin/sh
# Reads which libraries panoval.exe loads: windows_imports.sh BIN
# BIN is the folder of the built programs. What is not the system's must be one of ours, in that folder, and the same holds
# for ours.
set -eu
system='^(KERNEL32|USER32|ADVAPI32|SHELL32|PSAPI|SHLWAPI|WS2_32|api-ms-win-crt-[a-z0-9-]*|msvcrt|ucrtbase)\.dll$'
ours='^(panoval|libmath|panoval_mosaic|panoval_measure)\.dll$'
status=0
imports_of() { x86_64-w64-mingw32-objdump -p "$1" | sed -n 's/^.*DLL Name: //p'; }
pending=panoval.exe
seen=
while [ -n "$pending" ]; do
    file=${pending%% *}
    pending=$(echo "$pending" | cut -s -d' ' -f2-)
    case " $seen " in *" $file "*) continue ;; esac
    seen="$seen $file"
    imports=$(imports_of "$1/$file")
    [ -n "$imports" ] || { echo "$file has no imports"; exit 1; }
    for import in $imports; do
        if echo "$import" | grep -qE "$ours"; then
            pending="$pending${pending:+ }$import"
        elif ! echo "$import" | grep -qiE "$system"; then
            echo "$file needs $import, which no Windows has"
            status=1
        fi
    done
done
[ $status -ne 0 ] || echo "read the imports of$seen"
exit $status
