#!/bin/sh
# SPDX-License-Identifier: MIT
# A panorama that a signal ends while it is being written is not there, nor is anything that was begun: interrupted.sh BIN
# BIN is the folder of the built programs. Each signal comes when the first bytes are in the unfinished output, with most
# of the panorama still to come.
. "$(dirname "$0")/../../support/work_folder.sh"

width=2500
height=4000
{
    printf 'P6\n%d %d\n255\n' $width $height
    yes 'A row of plane trees, and 23 boats on the water.' | head -c $((3 * width * height))
} >a.ppm

# Until somebody has begun to write, or the program has ended.
wait_for_begun() { # PROCESS
    while kill -0 "$1" 2>/dev/null; do
        [ -z "$(find out* -name '*.part*' -prune -exec find {} -type f -size +0 ';' 2>/dev/null)" ] || return 0
        sleep 0.01
    done
}

interrupt() { # SIGNAL CODE OUTPUT OPTION...
    signal=$1
    code=$2
    output=$3
    shift 3
    mkdir out
    # Bash and other shells make background jobs deaf to INT; env makes them hear again.
    env --default-signal=INT "$panoval" stitch a.ppm@0,0 a.ppm@$((width - 100)),0 a.ppm@0,$((height - 100)) \
        a.ppm@$((width - 100)),$((height - 100)) -o "out/$output" --seams none --no-gain --threads 1 --quiet "$@" \
        2>errors &
    process=$!
    wait_for_begun $process
    kill -s "$signal" $process
    found=0
    wait $process || found=$?
    [ $found -eq "$code" ] || fail "$output: found exit code $found after $signal; expected $code"
    [ -z "$(ls out)" ] || fail "$output: $signal left $(ls out)"
    rmdir out
}

for signal in TERM INT HUP PIPE XCPU USR1; do
    case $signal in
    TERM) code=143 ;;
    INT) code=130 ;;
    HUP) code=129 ;;
    PIPE) code=141 ;;
    XCPU) code=152 ;;
    USR1) code=138 ;;
    esac
    interrupt $signal $code pano.tif --compression deflate --bands 6
    interrupt $signal $code pano.dzi --bands 6
done

# What was there stays as it was.
mkdir out
echo older >out/pano.tif
env --default-signal=INT "$panoval" stitch a.ppm@0,0 a.ppm@$((width - 100)),0 a.ppm@0,$((height - 100)) -o out/pano.tif \
    --seams none --no-gain --threads 1 --quiet --compression deflate &
process=$!
wait_for_begun $process
kill -s TERM $process
wait $process && fail "the program was not interrupted"
[ "$(cat out/pano.tif)" = older ] || fail "the older panorama is gone"
[ "$(ls out)" = pano.tif ] || fail "something is left beside the older panorama"
echo "interrupted thirteen times; no output stays half-written"
