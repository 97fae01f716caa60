#!/bin/sh
# Standard output and standard error in one place, as on a terminal: results_on_a_terminal.sh BIN
# BIN is the folder of the built programs. The progress bar is wiped out before the first line of the results.
. "$(dirname "$0")/../support/work_folder.sh"
{
    printf 'P5\n40 30\n255\n'
    yes "dark and bright" | tr ' ' '\000' | head -c 1200
} >a.pgm
printf 'P5\n40 30\n255\n' >none.pgm
head -c 1200 /dev/zero >>none.pgm

expect_lines_alone() { # FIRST-WORD COMMAND...
    first=$1
    shift
    "$panoval" "$@" --progress always >printed 2>&1
    # What the last carriage return before the first result has left on the line.
    if ! tr '\r' '\n' <printed | grep -q "^$first"; then
        echo "panoval $*: prints its results behind the progress bar:"
        cat printed
        exit 1
    fi
}

for command in edges smooth gradient distance threshold; do
    expect_lines_alone output $command a.pgm -o out.pgm
done
expect_lines_alone output inpaint a.pgm --mask none.pgm -o out.pgm
expect_lines_alone panorama stitch a.pgm@0,0 -o out.pgm
expect_lines_alone a.pgm ellipses a.pgm
