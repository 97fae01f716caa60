#!/bin/sh
# Compares what a shared library takes from libmath and from the OpenMP run-time library with a list:
# compare_imports.sh LIBRARY LIST
# The list has one name a line; lines that start with # are comments. A .dll has the OpenMP run-time library inside, so
# that only its names of libmath are compared.
set -eu
library=$1
list=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

case $library in
*.dll) skipped='^#\|^omp_' ;;
*) skipped='^#' ;;
esac

case $library in
*.dll)
    x86_64-w64-mingw32-objdump -p "$library" |
        awk '/DLL Name:/ { on = $3 == "libmath.dll"; next } NF == 0 { on = 0 } on && $1 != "vma:" { print $NF }'
    ;;
*)
    nm -D --undefined-only "$library" | awk '{ print $NF }' | sed 's/@.*//' |
        grep -E '^(omp|GOMP|gomp|__kmpc)_|^(matrix_|pnrml|solve_)' || :
    ;;
esac | LC_ALL=C sort >"$work/built"
grep -v "$skipped" "$list" | LC_ALL=C sort >"$work/listed"

if ! diff "$work/listed" "$work/built" >"$work/difference"; then
    echo "$library does not import what $list names (< listed, > built):"
    cat "$work/difference"
    exit 1
fi
echo "$(wc -l <"$work/built") imported names, all of them listed"
