#!/bin/sh
# The program on a heap that gives out: exhausted_heap.sh BIN PRELOAD [STEP]
# BIN is the folder of the built programs, PRELOAD the library that makes an allocation fail. Each command runs again and
# again, with one of its allocations failing, then with all from that one on: every STEP-th allocation (47), or every one
# with a STEP of 1. Each run does its work, or ends with exit code 5, its message, and whole outputs or none.
set -eu
program=$(cd "$1" && pwd)/panoval
preload=$2
step=${3:-47}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

fail() {
    echo "$*"
    cat errors
    exit 1
}

samples() { yes "An avenue of lime trees, and 17 lamps between them." | head -c "$1"; }
{
    printf 'P5\n60 50\n255\n'
    samples 3000
} >grey.pgm
{
    printf 'P5\n60 50\n1\n'
    head -c 1520 /dev/zero
    printf '\001\001\001'
    head -c 1477 /dev/zero
} >mark.pgm
cp grey.pgm other.pgm
"$program" edges grey.pgm -o grey.png --quiet
"$program" smooth grey.pgm -o grey.tif --quiet
"$program" smooth grey.pgm -o grey.jpg --quiet

# One run, judged: NUMBER is that of the failing allocation.
judge() { # NUMBER ALL OUTPUT COMMAND...
    number=$1
    all=$2
    output=$3
    shift 3
    rm -f "$output"
    code=0
    env LD_PRELOAD="$preload" FAIL_AT="$number" ${all:+FAIL_ALL=1} "$program" "$@" >results 2>errors || code=$?
    what="panoval $*, allocation $number${all:+ and all from it on}"
    [ -z "$(find . -name '*.part' -o -name '*.scratch')" ] || fail "$what: left an unfinished file"
    if [ -e "$output" ]; then
        cmp -s "$output" expected || fail "$what: another output, exit code $code"
    fi
    case $code in
    0)
        [ "$output" = none ] || [ -e "$output" ] || fail "$what: done without an output"
        cmp -s results expected-results || fail "$what: done with other results"
        ;;
    5) [ "$(tail -n 1 errors | cut -c1-9)" = "panoval: " ] || fail "$what: no message" ;;
    *) fail "$what: exit code $code" ;;
    esac
}

exhaust() { # OUTPUT COMMAND...
    output=$1
    shift
    env LD_PRELOAD="$preload" FAIL_COUNT=count "$program" "$@" >expected-results 2>errors || fail "panoval $*: failed"
    [ "$output" = none ] || mv "$output" expected
    count=$(cat count)
    for all in '' yes; do
        number=0
        while [ "$number" -lt "$count" ]; do
            judge "$number" "$all" "$output" "$@"
            number=$((number + step))
        done
    done
    echo "panoval $1: $count allocations"
}

exhaust out.png edges grey.pgm -o out.png --quiet
exhaust out.png inpaint grey.png --mask mark.pgm -o out.png --quiet
exhaust out.tif smooth grey.jpg -o out.tif --quiet
exhaust none ellipses grey.tif
exhaust out.png stitch grey.pgm@0,0 other.pgm@30,3 -o out.png --quiet
