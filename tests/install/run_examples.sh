#!/bin/sh
# Builds the examples against what is installed, runs them, and compares what they print: run_examples.sh EXAMPLES WORK
# pkg-config knows the words for the compiler. For another system they stand in HEADERS and WORDS, CC and CXX are its
# compilers, RUN runs its programs, and OWN_LIBMATH is the name under which programs there look for libmath.
set -eu
examples=$(cd "$1" && pwd)
mkdir -p "$2"
cd "$2"
: "${CC:=cc}" "${CXX:=c++}" "${RUN:=}" "${OWN_LIBMATH:=libmath.so.1}"
if [ -z "${WORDS:-}" ]; then
    WORDS="$(pkg-config --cflags --libs panoval panoval_mosaic panoval_measure) -Wl,-rpath,$(pkg-config --variable=libdir panoval)"
    HEADERS="-fPIC -I$(pkg-config --variable=includedir panoval)"
fi
: >said
for name in stitch_two stitch_three incremental_gains mosaic_callbacks measure_targets inpaint_scratch; do
    # shellcheck disable=SC2086 # lists of words
    $CC -std=c99 -Wall -Wextra -Wpedantic -Werror "$examples/$name.c" $WORDS -lm -o "$name.exe"
    $RUN "./$name.exe" | tr -d '\r' | sed "s/^/$name: /" >>said
done
# shellcheck disable=SC2086 # lists of words
$CXX -std=c++20 -Wall -Wextra -Werror "$examples/raii.cpp" $WORDS -o raii.exe
$RUN ./raii.exe | tr -d '\r' | sed 's/^/raii: /' >>said
# shellcheck disable=SC2086 # lists of words
$CC -std=c99 -Wall -Wextra -Wpedantic -Werror -shared $HEADERS "$examples/own_libmath.c" "-Wl,-soname,$OWN_LIBMATH" \
    -o "$OWN_LIBMATH" -lm
LD_LIBRARY_PATH=. $RUN ./incremental_gains.exe 2>&1 | tr -d '\r' | LC_ALL=C sort | sed 's/^/own_libmath: /' >>said
if ! diff "$examples/expected.txt" said; then
    echo "the examples printed something else than examples/expected.txt (< expected, > printed)" >&2
    exit 1
fi
echo "$(wc -l <said) lines of examples, all as expected"
