#!/bin/sh
# Looks for functions of the C run-time library's mathematics in a shared library: math_imports.sh LIBRARY
# Only those are allowed that are exact or correctly rounded everywhere: sqrt, fabs, floor, ceil and their like. A .dll
# may have such functions inside, so that its whole symbol table is read, not only what it imports.
set -eu
library=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

inexact='a?(sin|cos|tan)h?|atan2|sincos|exp|exp2|exp10|expm1|log|log2|log10|log1p|pow|cbrt|hypot|erfc?|[lt]gamma|fma'
case $library in
*.dll)
    x86_64-w64-mingw32-objdump -p "$library" | awk '$1 != "vma:" { print $NF }' >"$work/names"
    x86_64-w64-mingw32-nm "$library" | awk '{ print $NF }' >>"$work/names"
    ;;
*) nm -D --undefined-only "$library" | awk '{ print $NF }' | sed 's/@.*//' >"$work/names" ;;
esac

if [ ! -s "$work/names" ]; then
    echo "$library has no table of names"
    exit 1
fi
if grep -E "^(__imp_)?_*($inexact)[fl]?(_finite)?$" "$work/names" | sort -u >"$work/found"; [ -s "$work/found" ]; then
    echo "$library calls functions whose results differ between run-time libraries:"
    cat "$work/found"
    exit 1
fi
echo "$(wc -l <"$work/names") names, none of them inexact mathematics"
