#!/bin/sh
# What a new user does with the installed packages, in the home folder; every result is looked at.
set -eu
fail() {
    echo "as a stranger: $*" >&2
    exit 1
}

echo "the program"
panoval --version | grep -q '^panoval [1-9]' || fail "no version"
[ -s /usr/share/man/man1/panoval-stitch.1.gz ] || fail "no manual page of panoval stitch"
[ -s /usr/share/bash-completion/completions/panoval ] || fail "no completion"

echo "programs in C"
sh run_examples.sh examples programs

echo "pictures from the shell"
mkdir "p q" && cd "p q"
cp ../programs/two.pgm left.pgm
cp ../programs/two.pgm right.pgm
panoval stitch -o both.png left.pgm@0,0 right.pgm@400,0 --json >both.json
panoval edges both.png -o edges.tif
panoval smooth - -o - <both.png >smooth.png
panoval ellipses --json both.png >targets.json
for picture in both.png edges.tif smooth.png targets.json; do
    [ -s "$picture" ] || fail "there is no $picture"
done
cd ..

if [ -d /usr/lib/python3/dist-packages/panoval ]; then
    echo "a program in Python"
    python3 -c 'import panoval; print("panoval", panoval.__version__)'
fi
