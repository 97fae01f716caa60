#!/bin/sh
# Installs a build and uses it as a stranger would: use_installed.sh BUILD SOURCE STAGE
set -eu
build=$1
source=$2
stage=$3
rm -rf "$stage"
mkdir -p "$stage"
cmake --install "$build" --prefix "$stage/usr" >"$stage/install.log"
expected="450 x 200, dark 60, middle 130, bright 200"

expect() { # NAME COMMAND...
    name=$1
    shift
    found=$(cd "$stage" && "$@")
    if [ "$found" != "$expected" ]; then
        echo "$name: found '$found'; expected '$expected'" >&2
        exit 1
    fi
    echo "$name: works"
}

PKG_CONFIG_PATH=$(dirname "$(find "$stage" -name panoval.pc)")
export PKG_CONFIG_PATH
library=$(dirname "$PKG_CONFIG_PATH")
# shellcheck disable=SC2046 # lists of words
cc "$source/examples/stitch_two.c" $(pkg-config --cflags --libs panoval) -Wl,-rpath,"$library" -o "$stage/by_pkg_config"
expect "a C program by pkg-config" "$stage/by_pkg_config"
# shellcheck disable=SC2046 # lists of words
cc "$source/tests/install/consumer/versions.c" $(pkg-config --cflags --libs panoval_mosaic panoval_measure libmath) \
    -Wl,-rpath,"$library" -o "$stage/versions" && "$stage/versions"
cc "$source/examples/stitch_two.c" $(pkg-config --cflags panoval) -Wl,-Bstatic $(pkg-config --static --libs panoval |
    sed 's/-lgomp.*//') -Wl,-Bdynamic -lgomp -lstdc++ -lm -o "$stage/static_by_pkg_config"
expect "a static C program by pkg-config" "$stage/static_by_pkg_config"

# Each library is known by its major version, and needs ours and the compiler's run-time library beside itself, no other.
for name in libmath libpanoval libpanoval_mosaic libpanoval_measure; do
    objdump -p "$library/$name.so" >"$stage/fields"
    grep -q "^ *SONAME  *$name\.so\.1$" "$stage/fields" || {
        echo "$name has another soname than $name.so.1: $(grep SONAME "$stage/fields")" >&2
        exit 1
    }
    others=$(sed -n 's/^ *NEEDED *//p' "$stage/fields" | grep -vE '^(libmath|libgomp|libm|libc|ld-linux-.*)\.so\.[0-9]+$' || :)
    [ -z "$others" ] || {
        echo "$name needs beside itself: $others" >&2
        exit 1
    }
done

sh "$source/tests/install/run_examples.sh" "$source/examples" "$stage/examples"
for example in "$source"/examples/*.c "$source"/examples/*.cpp; do
    [ "$(wc -l <"$example")" -le 66 ] || {
        echo "$example has $(wc -l <"$example") lines, more than a screen's 66" >&2
        exit 1
    }
done

# The libmath that the examples left is as exact as ours where an ellipse's fit needs it.
# shellcheck disable=SC2046 # lists of words
cc "$source/tests/install/fit_oval.c" $(pkg-config --cflags --libs panoval) -lm -Wl,-rpath,"$library" -o "$stage/fit_oval"
ours=$("$stage/fit_oval")
own=$(LD_LIBRARY_PATH=$stage/examples "$stage/fit_oval" 2>"$stage/inverted")
if [ "$ours" != "1: 30.000 x 12.000 at 2500.500, 1400.250" ] || [ "$own" != "$ours" ] || [ ! -s "$stage/inverted" ]; then
    echo "an ellipse's fit: by our libmath '$ours', by the example's '$own'" >&2
    exit 1
fi
echo "a libmath of the host's own: as exact as ours"

cmake -S "$source/tests/install/consumer" -B "$stage/consumer" -DCMAKE_PREFIX_PATH="$stage/usr" \
    -DEXAMPLE="$source/examples/stitch_two.c" >"$stage/configure.log"
cmake --build "$stage/consumer" >"$stage/build.log" || {
    cat "$stage/build.log"
    exit 1
}
expect "a C program by find_package" "$stage/consumer/shared"
expect "a static C program by find_package" "$stage/consumer/static"
if ldd "$stage/consumer/static" | grep -q panoval; then
    echo "the static program needs a shared library of ours" >&2
    exit 1
fi
"$stage/consumer/versions"
"$stage/usr/bin/panoval" --version
for command in "" $("$stage/usr/bin/panoval" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/-\1/p'); do
    [ -s "$stage/usr/share/man/man1/panoval$command.1" ] || {
        echo "there is no manual page of panoval$command" >&2
        exit 1
    }
done
grep -q '^complete -F' "$stage/usr/share/bash-completion/completions/panoval"
