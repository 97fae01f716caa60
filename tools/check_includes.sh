#!/bin/sh
# Checks which folder includes which: check_includes.sh
# Dependencies run one way. A folder may include itself and what its line names: folders, or headers by their names.
set -eu
cd "$(dirname "$0")/.."

allowed() {
    case $1 in
    core | libmath) ;;
    io | filter | inpaint) echo core panoval.h ;;
    exposure) echo core panoval.h libmath/libmath.h ;;
    detect) echo core filter panoval.h libmath/libmath.h ;;
    blend) echo core filter exposure panoval.h ;;
    mosaic/base) echo core blend ;;
    mosaic/pictures) echo core exposure blend mosaic/base ;;
    mosaic/gains) echo core mosaic/base mosaic/pictures ;;
    mosaic/seams) echo core filter mosaic/base mosaic/pictures ;;
    mosaic/tiles) echo core filter blend mosaic/base mosaic/pictures mosaic/seams ;;
    mosaic/verdict) echo core mosaic/base mosaic/pictures mosaic/seams ;;
    mosaic)
        echo mosaic/base mosaic/pictures mosaic/gains mosaic/seams mosaic/tiles mosaic/verdict
        echo panoval_mosaic.h panoval_version.h
        ;;
    measure) echo core filter detect panoval.h panoval_measure.h panoval_version.h ;;
    image) echo core panoval.h ;;
    cli/base | cli/stitch | cli/pyramid | cli/ellipses | cli/filters)
        echo cli/base image panoval.h panoval_mosaic.h panoval_measure.h
        ;;
    cli/reference) echo cli/base ;;
    cli) echo cli/base cli/stitch cli/pyramid cli/ellipses cli/filters cli/reference image ;;
    tools) echo cli/base image panoval.h ;;
    esac
    [ "$1" != core ] || echo panoval.h
}

# The sources of a folder; the rooms of the engine and of the program are folders of their own.
sources() {
    if [ "$1" = cli ] || [ "$1" = mosaic ]; then
        find "$1" -maxdepth 1 -name '*.cpp' -o -maxdepth 1 -name '*.h'
    else
        find "$1" -name '*.cpp' -o -name '*.h'
    fi
}

status=0
for folder in core io filter exposure blend inpaint detect libmath mosaic/base mosaic/pictures mosaic/gains \
    mosaic/seams mosaic/tiles mosaic/verdict mosaic measure image cli/base cli/stitch cli/pyramid cli/ellipses \
    cli/filters cli/reference cli tools; do
    [ -d "$folder" ] || continue
    pattern="^($folder/[^/]*"
    for other in $(allowed "$folder"); do
        case $other in
        *.h) pattern="$pattern|$other" ;;
        *) pattern="$pattern|$other/[^/]*" ;;
        esac
    done
    pattern="$pattern)$"
    bad=$(sources "$folder" | xargs grep -nE '^ *#include "|HWY_TARGET_INCLUDE "' /dev/null |
        sed -E 's/^([^:]*:[0-9]+):[^"]*"([^"]*)".*/\1 \2/' |
        awk -v pattern="$pattern" '$2 !~ pattern') || true
    if [ -n "$bad" ]; then
        echo "folder $folder must not include:"
        echo "$bad"
        status=1
    fi
done
[ $status -ne 0 ] || echo "every include runs along the table of folders"
exit $status
