#!/bin/sh
# The program on a heap that gives out: exhausted_heap.sh BIN PRELOAD [STEP]
# BIN is the folder of the built programs, PRELOAD the library that makes an allocation fail. Each command runs again and
# again, with one of its allocations failing, then with all from that one on: every STEP-th allocation (47), or every one
# with a STEP of 1. Each run does its work, or ends with exit code 5, its message, and each output whole or absent. What
# is left of a store, the same command without a failure completes. A run that comes to its own end leaves no more blocks
# behind than one without a failure, but for the parts of one value that the JSON library forgets where it runs out.
set -eu
program=$(cd "$1" && pwd)/panoval
preload=$2
step=${3:-47}
most_forgotten=100
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
pair='grey.pgm@0,0 other.pgm@30,3'
"$program" edges grey.pgm -o grey.png --quiet
"$program" smooth grey.pgm -o grey.tif --quiet
"$program" smooth grey.pgm -o grey.jpg --quiet
# shellcheck disable=SC2086 # two words
"$program" stitch $pair -o plain.zarr --tile-size 32 --quiet
# shellcheck disable=SC2086
"$program" stitch $pair -o plan.json --plan-only --quiet

outputs= # what the command makes
begin=   # a store that is there before
first=0  # the first allocation that fails
again=   # options of the run that completes a store; "no" where there is none

# One run, judged: NUMBER is that of the failing allocation.
judge() { # NUMBER ALL COMMAND...
    number=$1
    all=$2
    shift 2
    rm -rf $outputs count
    [ -z "$begin" ] || cp -r $begin $outputs
    code=0
    env LD_PRELOAD="$preload" FAIL_COUNT=count FAIL_AT="$number" ${all:+FAIL_ALL=1} "$program" "$@" >results 2>errors ||
        code=$?
    what="panoval $*, allocation $number${all:+ and all from it on}"
    [ -z "$(find . -name '*.part' -o -name '*.scratch')" ] || fail "$what: left an unfinished file"
    left=$expected_left
    [ ! -e count ] || read -r _ left <count
    [ "$left" -le $((expected_left + most_forgotten)) ] || fail "$what: left $left blocks instead of $expected_left"
    case $code in
    0) cmp -s results expected-results || fail "$what: done with other results" ;;
    5)
        [ "$(tail -n 1 errors | cut -c1-9)" = "panoval: " ] || fail "$what: no message"
        [ "$again" = no ] || "$program" "$@" $again >/dev/null 2>errors || fail "$what: cannot be completed"
        ;;
    *) fail "$what: exit code $code" ;;
    esac
    for output in $outputs; do
        if [ -e "$output" ]; then
            diff -r "$output" "expected/$output" >/dev/null || fail "$what: another $output, exit code $code"
        else
            [ "$code$again" = 5no ] || fail "$what: done without $output"
        fi
    done
}

exhaust() { # COMMAND...
    rm -rf expected $outputs
    mkdir expected
    [ -z "$begin" ] || cp -r $begin $outputs
    env LD_PRELOAD="$preload" FAIL_COUNT=count "$program" "$@" >expected-results 2>errors || fail "panoval $*: failed"
    [ -z "$outputs" ] || mv $outputs expected
    read -r count expected_left <count
    for all in '' yes; do
        number=$first
        while [ "$number" -lt "$count" ]; do
            judge "$number" "$all" "$@"
            number=$((number + step))
        done
    done
    echo "panoval $*: $count allocations"
}

again=no
outputs=out.png
exhaust edges grey.pgm -o out.png --quiet
first=3700 # all commands begin alike
exhaust gradient grey.pgm -o out.png --quiet
exhaust distance mark.pgm -o out.png --quiet
exhaust threshold grey.pgm -o out.png --quiet
exhaust inpaint grey.png --mask mark.pgm -o out.png --quiet
exhaust stitch --plan plan.json -o out.png --quiet
outputs=out.tif
exhaust smooth grey.jpg -o out.tif --quiet
exhaust pyramid plain.zarr -o out.tif --quiet
outputs='out.dzi out_files'
exhaust pyramid plain.zarr -o out.dzi --quiet
outputs=
exhaust ellipses grey.tif
outputs='out.png out.svg'
exhaust ellipses grey.tif --png out.png --svg out.svg
outputs=out.json
exhaust stitch $pair -o out.json --plan-only --quiet
outputs='out.tif gains.json seams.png page.html'
exhaust stitch $pair -o out.tif --pyramid --gains gains.json --save-seams seams.png --report page.html --quiet
outputs=out.zarr
again=--resume
exhaust stitch $pair -o out.zarr --quiet
again=
begin=plain.zarr
exhaust pyramid out.zarr --quiet
