#!/bin/sh
# Hands the program wildcards through the command interpreter of Windows, which leaves them as they are:
# wildcards_from_cmd.sh RUN BIN
# RUN runs a Windows program here, BIN is the folder of panoval.exe.
set -eu
run=$(realpath "$1")
program="Z:$(realpath "$2/panoval.exe" | tr / '\\')"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/two shots"
for name in a b; do
    printf 'P5\n8 8\n255\n' >"$folder/$name.pgm"
    head -c 64 /dev/zero >>"$folder/$name.pgm"
    cp "$folder/$name.pgm" "$folder/two shots/$name.pgm"
done
cd "$folder"

# Exactly these files came into being: expect WHAT FILE...
expect() {
    what=$1
    shift
    for file in "$@"; do
        [ -f "$file" ] || { echo "$what: found no '$file'"; exit 1; }
    done
    found=$(find . -name '*-*.png' | wc -l)
    [ "$found" -eq $# ] || { echo "$what: found $found pictures; expected $#"; exit 1; }
    find . -name '*-*.png' -delete
}

# A file of its own keeps the quotes as they are.
panoval_in_cmd() {
    printf '@"%s" %s\r\n' "$program" "$*" >"$folder/line.bat"
    "$run" cmd /c line.bat </dev/null
}

panoval_in_cmd smooth '*.pgm' -o '{path}-smooth.png'
expect "a wildcard" a-smooth.png b-smooth.png
panoval_in_cmd smooth '"*.pgm"' -o '{path}-smooth.png'
expect "a wildcard in quotes" a-smooth.png b-smooth.png
panoval_in_cmd smooth 'a.p?m' '"two shots\*.pgm"' -o '{path}-smooth.png'
expect "a folder with a blank" a-smooth.png "two shots/a-smooth.png" "two shots/b-smooth.png"
if panoval_in_cmd smooth '*.tif' -o '{path}-smooth.png' 2>message; then
    echo "a wildcard without files: ended with 0"
    exit 1
fi
grep -q '\*\.tif' message || { cat message; echo "a wildcard without files is not named"; exit 1; }

# The interpreter takes apostrophes for part of a name.
for command in stitch pyramid ellipses inpaint edges smooth threshold gradient distance; do
    "$run" "$2/panoval.exe" "$command" --help </dev/null >help
    grep -q '^Examples\{0,1\}:' help || { echo "$command --help shows no example"; exit 1; }
    if grep -n "'[^ ]*[{*]" help; then
        echo "$command --help: names in apostrophes, which this system's interpreter hands on"
        exit 1
    fi
done
echo "cmd hands wildcards on, and they become files; help quotes names as it does"
