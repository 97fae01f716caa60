#!/bin/sh
# Measures targets with ever more address space: targets_in_little_memory.sh BIN
# BIN is the folder of the built programs. Each run finds every target, or ends with exit code 5 and one line; fewer
# targets, or none, are never an answer. Nor does it matter how many threads the environment promises.
set -eu
program=$(cd "$1" && pwd)/panoval
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Six dark discs on a light ground.
awk 'BEGIN {
    print "P2\n900 600\n255"
    for (y = 0; y < 600; y++)
        for (x = 0; x < 900; x++) {
            u = x % 300 - 150
            v = y % 300 - 150
            d = sqrt(u * u + 1.3 * v * v) - 60
            print int(d < -1 ? 40 : d > 1 ? 200 : 120 + 80 * d)
        }
}' >discs.pgm

"$program" ellipses discs.pgm >expected
grep -q '^discs.pgm: 6 targets' expected || { cat expected; exit 1; }

step=500 # KB
limit=10000
until (ulimit -v $limit && "$program" --version) >/dev/null 2>&1; do
    limit=$((limit + step))
done
refused=0
done_since=0
while [ $done_since -lt 40 ]; do # on beyond the first success: a later attempt may fail in another place
    code=0
    (ulimit -v $limit && exec "$program" ellipses discs.pgm) >results 2>errors || code=$?
    if [ $code -eq 0 ]; then
        cmp results expected || { echo "other results in $limit KB"; exit 1; }
        done_since=$((done_since + 1))
    else
        [ $code -eq 5 ] && [ "$(wc -l <errors)" -eq 1 ] || { echo "exit code $code in $limit KB"; cat errors; exit 1; }
        refused=$((refused + 1))
    fi
    limit=$((limit + step))
    [ $limit -lt 1000000 ] || { echo "never enough memory"; exit 1; }
done
[ $refused -gt 0 ] || { echo "no limit was too small"; exit 1; }

for threads in 1 3 1000 2147483647; do
    OMP_NUM_THREADS=$threads "$program" ellipses discs.pgm >results
    cmp results expected || { echo "other results with OMP_NUM_THREADS=$threads"; exit 1; }
done
echo "$refused limits refused, $done_since taken, up to $limit KB"
