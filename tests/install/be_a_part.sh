#!/bin/sh
# The tree as a part of another project: be_a_part.sh SOURCE WORK
# Its libraries alone are there, by the names that they are installed under; warnings are no errors; nothing is a test.
set -eu
source=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
fail() {
    echo "$*"
    exit 1
}

cmake -S "$source/tests/install/parent" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release "-DPANOVAL=$source" \
    >"$work/configure.log" 2>&1 || fail "$(cat "$work/configure.log")"
ninja -C "$work/build" -t targets all | sed -n 's/: [CA-Z_]*EXECUTABLE_LINKER.*//p' >"$work/programs"
[ "$(sort "$work/programs" | tr '\n' ' ')" = "invert versions " ] || fail "found programs $(cat "$work/programs"); expected those of the parent"
if grep -q -e '-Werror' "$work/build/compile_commands.json"; then
    fail "warnings are errors in somebody else's project"
fi
(cd "$work/build" && ctest -N) | grep -q '^Total Tests: 0' || fail "tests are there"
cmake --build "$work/build" --target invert >"$work/build.log" 2>&1 || fail "$(tail -n 50 "$work/build.log")"
found=$(find "$work/build" -name invert -type f -exec {} \;)
[ "$found" = "1: 0.5 0 0 0.25" ] || fail "found '$found'; expected the inverse"

# Only the presets make warnings errors, and nothing takes the whole tree's folder for its own.
grep -rlE 'CMAKE_(SOURCE|BINARY)_DIR' "$source" --include=CMakeLists.txt --include='*.cmake' --exclude-dir=build >"$work/whole" || :
[ ! -s "$work/whole" ] || fail "CMAKE_SOURCE_DIR or CMAKE_BINARY_DIR stand in $(cat "$work/whole")"
echo "a part of another project: the libraries and nothing else"
