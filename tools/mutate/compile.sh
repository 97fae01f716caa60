#!/bin/sh
# SPDX-License-Identifier: MIT
# Compiles what holds mutants without warnings and quickly, its kernels for one instruction set:
#     compile.sh COMPILER ARGUMENT...
# Everything else is compiled as it is. The compiler cache is used where there is one.
cache=$(command -v ccache || true)
for source in "$@"; do :; done # the last argument
if head -n 1 "$source" | grep -q 'core/mutant.h'; then
    set -- "$@" -w -Wno-narrowing -O1
    ! grep -q 'hwy/foreach_target.h' "$source" || set -- "$@" -march=haswell -maes -DHWY_COMPILE_ONLY_STATIC
fi
exec $cache "$@"
