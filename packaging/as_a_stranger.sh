#!/bin/sh
# What a new user does with the packages: installs them and compiles a program, word by word as README.md says, and goes on
# from there. Works in the home folder, where panoval/ has the README, the examples and the packages; looks at every result.
set -eu
fail() {
    echo "as a stranger: $*" >&2
    exit 1
}

echo "README.md, word by word"
cd panoval
sed -n '/^\.\/dev package/,/^```/p' README.md | sed '1d;$d' >commands
[ "$(wc -l <commands)" -eq 2 ] || fail "README.md shows $(wc -l <commands) commands behind ./dev package; expected 2"
while IFS= read -r line; do
    yes | sh -c "$line" >said 2>&1 || fail "README.md: '$line' failed: $(cat said)"
done <commands
[ "$(cat said)" = "450 x 200, dark 60, middle 130, bright 200" ] || fail "the program of README.md printed $(cat said)"
[ -s two.pgm ] || fail "the program of README.md has left no picture"
cd ..

echo "the program"
panoval --version | grep -q '^panoval [1-9]' || fail "no version"
[ -s /usr/share/man/man1/panoval-stitch.1.gz ] || fail "no manual page of panoval stitch"
[ -s /usr/share/bash-completion/completions/panoval ] || fail "no completion"

echo "programs in C"
sudo apt-get install -y -qq --no-install-recommends g++ >installed 2>&1 || fail "$(cat installed)"
sh run_examples.sh panoval/examples programs

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
