#!/bin/sh
# Checks which folder includes which: check_includes.sh
# Dependencies run one way. A folder may include itself and the folders on its line.
set -eu
cd "$(dirname "$0")/.."

allowed() {
    case $1 in
    core | libmath | cli) ;;
    io | filter | exposure | inpaint) echo core ;;
    detect) echo core filter ;;
    blend) echo core filter exposure ;;
    measure) echo core filter detect ;;
    esac
}

status=0
for folder in core io filter exposure blend inpaint detect measure libmath cli; do
    [ -d "$folder" ] || continue
    pattern="^($folder"
    for other in $(allowed "$folder"); do
        pattern="$pattern|$other"
    done
    pattern="$pattern)/"
    # "panoval.h" is the public header; libmath's header stands for the library that is imported.
    bad=$(grep -rnE '^ *#include "|HWY_TARGET_INCLUDE "' --include='*.cpp' --include='*.h' "$folder" |
        sed -E 's/^([^:]*:[0-9]+):[^"]*"([^"]*)".*/\1 \2/' |
        awk -v pattern="$pattern" '$2 !~ pattern && $2 !~ /^panoval(_measure)?\.h$/ && $2 != "libmath/libmath.h"') || true
    if [ "$folder" = cli ] || [ "$folder" = io ]; then
        math=$(grep -rnE '#include "libmath/' "$folder" || true)
        bad="$bad$math"
    fi
    if [ -n "$bad" ]; then
        echo "folder $folder must not include:"
        echo "$bad"
        status=1
    fi
done
[ $status -ne 0 ] || echo "every include runs along the table of folders"
exit $status
