#!/bin/sh
# Checks which folder includes which: check_includes.sh
# Dependencies run one way. A folder may include itself and what its line names: folders, or headers by their names.
set -eu
cd "$(dirname "$0")/.."

headers='panoval.h panoval_mosaic.h panoval_measure.h libmath/libmath.h'

# Every folder that holds sources, but those that try a folder of these and follow it, see tried.
table() {
    cat <<END
core             panoval.h
libmath
io               core panoval.h
filter           core panoval.h
inpaint          core panoval.h
exposure         core panoval.h libmath/libmath.h
detect           core filter panoval.h libmath/libmath.h
blend            core filter exposure panoval.h

mosaic/base      core blend
mosaic/pictures  core exposure blend mosaic/base
mosaic/gains     core mosaic/base mosaic/pictures
mosaic/seams     core filter mosaic/base mosaic/pictures
mosaic/tiles     core filter blend mosaic/base mosaic/pictures mosaic/seams
mosaic/verdict   core mosaic/base mosaic/pictures mosaic/seams
mosaic           mosaic/base mosaic/pictures mosaic/gains mosaic/seams mosaic/tiles mosaic/verdict panoval_mosaic.h panoval_version.h
measure          core filter detect panoval.h panoval_measure.h panoval_version.h

image            core panoval.h
cli/base         image panoval.h panoval_mosaic.h panoval_measure.h
cli/stitch       cli/base image panoval.h panoval_mosaic.h panoval_measure.h
cli/pyramid      cli/base image panoval.h panoval_mosaic.h panoval_measure.h
cli/ellipses     cli/base image panoval.h panoval_mosaic.h panoval_measure.h
cli/filters      cli/base image panoval.h panoval_mosaic.h panoval_measure.h
cli/reference    cli/base
cli              cli/base cli/stitch cli/pyramid cli/ellipses cli/filters cli/reference image
tools            cli/base image panoval.h

tests/support    image panoval.h
tests/scenes     image tests/support panoval.h
tests/reference  core blend detect measure mosaic/base mosaic/pictures mosaic/gains mosaic/seams mosaic/verdict tests/mosaic panoval.h libmath/libmath.h
tests/bits       mosaic/seams tests/mosaic tests/support $headers
tests/guards     tests/scenes tests/support $headers
tests/heap       tests/scenes tests/support $headers
tests/install    tests/scenes tests/support $headers
tests/interface  tests/scenes tests/support $headers
tests/elementary core
tests/cli        cli/base image tests/support
bench/hosts      $headers
bench/support    $headers
bench/accuracy   tests/scenes tests/support $headers
bench/whole_program  cli/base image $headers
fuzz             cli/stitch image tests/reference tests/support $headers
examples         $headers
include          panoval_version.h
END
}

listed() {
    table | awk 'NF > 0 { print $1 }'
}

# What a folder's line names; fails for a folder without one.
line_of() {
    table | awk -v folder="$1" '$1 == folder { $1 = ""; print; found = 1 } END { exit !found }'
}

# What tries a folder knows what the folder knows, and callers' headers.
tried() {
    line_of "$1" || return 1
    echo "$1" tests/reference tests/support "$headers"
    case $1 in
    measure) echo tests/scenes ;;
    mosaic/base) echo mosaic/seams tests/mosaic ;;
    mosaic/verdict) echo mosaic/gains tests/mosaic ;;
    mosaic | mosaic/*) echo tests/mosaic ;;
    esac
}

allowed() {
    line_of "$1" && return
    case $1 in
    tests/tools) line_of tools && echo tools tests/cli tests/support ;;
    tests/cli/*) line_of "${1#tests/}" && echo "${1#tests/}" tests/cli tests/support ;;
    tests/*) tried "${1#tests/}" ;;
    bench/*) tried "${1#bench/}" && echo bench/support ;;
    *) return 1 ;;
    esac
}

# Every folder with sources, but those of other projects that tests install the library into.
folders() {
    find . \( -path ./build -o -path './.?*' -o -path './tests/install/*' \) -prune -o \
        \( -name '*.cpp' -o -name '*.c' -o -name '*.h' \) -print | sed 's|^\./||; s|/[^/]*$||' | sort -u
}

# The sources that stand in a folder itself; rooms within it are folders of their own.
sources() {
    find "$1" -maxdepth 1 -name '*.cpp' -o -maxdepth 1 -name '*.c' -o -maxdepth 1 -name '*.h'
}

status=0
for folder in $(listed); do
    if [ ! -d "$folder" ]; then
        echo "the table has $folder, which is not there"
        status=1
    fi
done
for folder in $(folders); do
    if ! others=$(allowed "$folder"); then
        echo "the table has no line for $folder"
        status=1
        continue
    fi
    pattern="^($folder/[^/]*"
    for other in $others; do
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
