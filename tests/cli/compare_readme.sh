#!/bin/sh
# The README's example is the one that the tests build and run, but for its opening comments: compare_readme.sh SOURCES
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
sed -n '/^```c$/,/^```$/p' "$1/README.md" | sed '1d;$d' >"$work/readme"
sed '/^\/\* .* \*\/$/d' "$1/examples/stitch_two.c" >"$work/example"
if ! diff "$work/readme" "$work/example" >"$work/difference"; then
    echo "README.md shows another example than examples/stitch_two.c (< README, > example):"
    cat "$work/difference"
    exit 1
fi
echo "$(wc -l <"$work/readme") lines, all the same"
