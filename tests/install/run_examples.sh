#!/bin/sh
# Builds the examples with what pkg-config knows, runs them, and compares what they print: run_examples.sh EXAMPLES WORK
set -eu
examples=$(cd "$1" && pwd)
mkdir -p "$2"
cd "$2"
library=$(pkg-config --variable=libdir panoval)
words="$(pkg-config --cflags --libs panoval panoval_mosaic panoval_measure) -Wl,-rpath,$library"
: >said
for name in stitch_two stitch_three incremental_gains mosaic_callbacks measure_targets inpaint_scratch; do
    # shellcheck disable=SC2086 # a list of words
    cc -std=c99 -Wall -Wextra -Wpedantic -Werror "$examples/$name.c" $words -lm -o "$name"
    "./$name" | sed "s/^/$name: /" >>said
done
# shellcheck disable=SC2086 # a list of words
c++ -std=c++20 -Wall -Wextra -Werror "$examples/raii.cpp" $words -o raii
./raii | sed 's/^/raii: /' >>said
cc -std=c99 -Wall -Wextra -Wpedantic -Werror -shared -fPIC "-I$(pkg-config --variable=includedir panoval)" \
    "$examples/own_libmath.c" -Wl,-soname,libmath.so.1 -o libmath.so.1 -lm
LD_LIBRARY_PATH=. ./incremental_gains 2>&1 | LC_ALL=C sort | sed 's/^/own_libmath: /' >>said
if ! diff "$examples/expected.txt" said; then
    echo "the examples printed something else than examples/expected.txt (< expected, > printed)" >&2
    exit 1
fi
echo "$(wc -l <said) lines of examples, all as expected"
