#!/bin/sh
# Runs commands with ever more memory until they succeed: little_memory.sh BIN
# BIN is the folder of the built programs. Before that each must end with exit code 5, one line, and no output; what it
# then makes must be what it makes with plenty of memory. The line names a file and what is missing, except where it is
# the last few bytes.
set -eu
program=$(cd "$1" && pwd)/panoval
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

width=900
height=700
step=500     # KB
most=1000000 # KB
samples() { yes "An avenue of lime trees, and 17 lamps between them." | head -c "$1"; }
{
    printf 'P5\n%d %d\n255\n' $width $height
    samples $((width * height))
} >grey.pgm
{
    printf 'P6\n%d %d\n255\n' $width $height
    samples $((width * height * 3))
} >colour.ppm
awk -v w=$width -v h=$height 'BEGIN {
    print "P2\n" w " " h "\n1"
    for (y = 0; y < h; y++)
        for (x = 0; x < w; x++)
            print (x % 40 > 36 && y % 40 > 35 && y < h - 9) ? 1 : 0
}' >holes.pgm
awk -v w=$width -v h=$height 'BEGIN {
    print "P2\n" w " " h "\n1"
    for (i = 0; i < w * h; i++)
        print i % 97 == 0 ? 0 : 1
}' >dots.pgm

fail() {
    echo "$*"
    cat errors
    exit 1
}

# What the program takes before it does anything.
least=${LEAST:-10000}
until (ulimit -v $least && "$program" --version) >/dev/null 2>&1; do
    least=$((least + 1000))
    [ $least -lt $most ] || { echo "panoval --version never runs"; exit 1; }
done

grow() { # OUTPUT COMMAND...
    output=$1
    shift
    "$program" "$@" -o "expected-$output" --quiet 2>errors || fail "panoval $*: failed with plenty of memory"
    refused=0
    named=0
    limit=$least
    while :; do
        code=0
        (ulimit -v $limit && exec "$program" "$@" -o "$output" --quiet) >/dev/null 2>errors || code=$?
        [ $code -ne 0 ] || break
        [ $code -eq 5 ] || fail "panoval $*: exit code $code in $limit KB"
        [ "$(grep -c . errors)" -eq 1 ] || fail "panoval $*: not one line in $limit KB"
        if grep -q '^panoval: .*\.p[gp]m: found too little memory; expected [0-9]* MB to be free$' errors; then
            named=$((named + 1))
        else
            grep -q '^panoval: not enough memory$' errors || fail "panoval $*: another line in $limit KB"
        fi
        [ -z "$(find . -name "$output*")" ] || fail "panoval $*: left something behind in $limit KB"
        refused=$((refused + 1))
        limit=$((limit + step))
        [ $limit -lt $most ] || fail "panoval $*: never enough"
    done
    [ $refused -gt 0 ] || fail "panoval $*: was never short of memory"
    # The engine that makes a panorama has no file to name.
    [ "$1" = stitch ] || [ $((2 * named)) -gt $refused ] || fail "panoval $*: named no file in most of $refused cases"
    cmp "$output" "expected-$output" || fail "panoval $*: another result in $limit KB"
    rm "$output"
    echo "panoval $1: refused $refused times, then done in $limit KB"
}

grow out.pgm gradient grey.pgm
grow out.pgm edges grey.pgm
grow out.pgm edges grey.pgm --sigma 20
grow out.pgm distance dots.pgm
grow out.ppm inpaint colour.ppm --mask holes.pgm
step=1000
grow out.ppm stitch colour.ppm@0,0 colour.ppm@300,7 --blend feather
grow out.ppm stitch colour.ppm@0,0 colour.ppm@300,7 --bands 4
