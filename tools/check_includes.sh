#!/bin/sh
# Checks which folder includes which: check_includes.sh
# Dependencies run one way. A folder may include itself and what its line names: folders, or headers by their names.
set -eu
cd "$(dirname "$0")/.."

headers='panoval.h panoval_mosaic.h panoval_measure.h libmath/libmath.h'

# For the tests and benches of a folder.
tried() {
    echo "$1" "$(allowed "$1")" tests/reference tests/support "$headers"
    case $1 in
    measure) echo tests/scenes ;;
    mosaic/base) echo mosaic/seams tests/mosaic ;;
    mosaic/verdict) echo mosaic/gains tests/mosaic ;;
    mosaic | mosaic/*) echo tests/mosaic ;;
    esac
}

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
    cli/base) echo image core/large_pages.h panoval.h panoval_mosaic.h panoval_measure.h ;;
    cli/stitch | cli/pyramid | cli/ellipses | cli/filters)
        echo cli/base image panoval.h panoval_mosaic.h panoval_measure.h
        ;;
    cli/reference) echo cli/base ;;
    cli) echo cli/base cli/stitch cli/pyramid cli/ellipses cli/filters cli/reference image ;;
    tools) echo cli/base image panoval.h ;;

    # What tries a folder knows what the folder knows, and callers' headers.
    tests/support | tests/scenes) echo image tests/support panoval.h ;;
    tests/reference)
        echo core blend detect measure mosaic/base mosaic/pictures mosaic/gains mosaic/seams mosaic/verdict
        echo tests/mosaic panoval.h libmath/libmath.h
        ;;
    tests/tools) echo tools image tests/cli tests/support ;;
    tests/bits) echo mosaic/seams tests/mosaic tests/support "$headers" ;;
    tests/guards | tests/heap | tests/install | tests/interface) echo tests/scenes tests/support "$headers" ;;
    tests/elementary) echo core ;;
    tests/cli) echo cli/base image tests/support ;;
    tests/cli/*) echo "${1#tests/}" "$(allowed "${1#tests/}")" tests/cli tests/support ;;
    tests/*) tried "${1#tests/}" ;;
    bench/hosts | bench/support) echo "$headers" ;;
    bench/accuracy) echo tests/scenes tests/support "$headers" ;;
    bench/whole_program) echo cli/base image "$headers" ;;
    bench/*) echo "$(tried "${1#bench/}")" bench/support ;;
    fuzz) echo cli/stitch image tests/reference tests/support "$headers" ;;
    examples) echo "$headers" ;;
    esac
    [ "$1" != core ] || echo panoval.h
}

# The folders that hold tests, benches, fuzz targets and examples themselves.
users() {
    find tests bench fuzz examples -name '*.cpp' -o -name '*.c' -o -name '*.h' | sed 's|/[^/]*$||' | sort -u |
        grep -vE '^(tests/install/|fuzz/corpus)'
}

# The sources that stand in a folder itself; rooms within it are folders of their own.
sources() {
    find "$1" -maxdepth 1 -name '*.cpp' -o -maxdepth 1 -name '*.c' -o -maxdepth 1 -name '*.h'
}

status=0
for folder in core io filter exposure blend inpaint detect libmath mosaic/base mosaic/pictures mosaic/gains \
    mosaic/seams mosaic/tiles mosaic/verdict mosaic measure image cli/base cli/stitch cli/pyramid cli/ellipses \
    cli/filters cli/reference cli tools $(users); do
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
