#!/bin/sh
# Results that cannot be printed end in exit code 4, however long they are: results_into_a_full_disk.sh BIN
# BIN is the folder of the built programs.
. "$(dirname "$0")/../support/work_folder.sh"
{
    printf 'P5\n40 30\n255\n'
    yes "dark and bright" | tr ' ' '\000' | head -c 1200
} >a.pgm

expect_failure() {
    code=0
    "$panoval" "$@" >/dev/full 2>errors || code=$?
    if [ $code -ne 4 ] || ! grep -q '^panoval: standard output: found an error while writing' errors; then
        echo "panoval $*: exit code $code"
        cat errors
        exit 1
    fi
}

expect_failure ellipses --json a.pgm
expect_failure ellipses --csv a.pgm
# shellcheck disable=SC2046 # many words
expect_failure ellipses --json $(yes a.pgm | head -n 100) # more than a buffer holds
expect_failure smooth --json a.pgm -o out.pgm
expect_failure stitch --json a.pgm@0,0 a.pgm@20,0 -o out.pgm
[ -s out.pgm ] || { echo "the panorama is lost"; exit 1; }

# A stream that is closed from the start: no file of the program gets its number.
rm out.pgm
code=0
"$panoval" stitch --json a.pgm@0,0 a.pgm@20,0 -o out.pgm --report out.html >&- 2>errors || code=$?
[ $code -eq 4 ] || { echo "found exit code $code with standard output closed; expected 4"; exit 1; }
grep -q '^panoval: standard output: found it closed; expected an open one' errors || { cat errors; exit 1; }
cp out.pgm first.pgm
"$panoval" stitch a.pgm@0,0 a.pgm@20,0 -o out.pgm --report out.html >log 2>&- || { echo "a closed standard error is no failure"; exit 1; }
cmp out.pgm first.pgm
tail -n 1 out.html | grep -q '</html>' || { echo "the report is not whole"; exit 1; }
echo "results that are lost are errors"
