#!/bin/sh
# Compares a shared library's export table with a list: compare_exports.sh LIBRARY LIST
# The list has one name a line; lines that start with # are comments.
set -eu
library=$1
list=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

case $library in
*.dll)
    x86_64-w64-mingw32-objdump -p "$library" |
        awk '/^\[Ordinal\/Name Pointer\] Table/ { on = 1; next } on && NF == 0 { on = 0 } on { print $NF }'
    ;;
*)
    nm -D --defined-only "$library" | awk '{ print $NF }' | sed 's/@.*//'
    ;;
esac | grep -v '^__asan\|^__ubsan\|^__odr_asan' | LC_ALL=C sort >"$work/built"
grep -v '^#' "$list" | LC_ALL=C sort >"$work/listed"

if ! diff "$work/listed" "$work/built" >"$work/difference"; then
    echo "$library does not export what $list names (< listed, > built):"
    cat "$work/difference"
    exit 1
fi
echo "$(wc -l <"$work/built") exported names, all of them listed"
