#!/bin/sh
# The first commands that README.md shows, word by word, on a bare Debian 12 by a new user: try_readme.sh COUNT CACHE
# COUNT says how many of them, 1 or 2; CACHE keeps the bare system between runs. Needs root. The tree is the last commit.
# A folder of ccache in PANOVAL_CCACHE serves as compiler cache; nothing is written to it.
set -eu
tree=$(cd "$(dirname "$0")/.." && pwd)
count=$1
mkdir -p "$2"
cache=$(cd "$2" && pwd)
. "$tree/packaging/bare_debian.sh"
fail() {
    echo "try_readme: $*" >&2
    exit 1
}

mkdir "$home/panoval"
git -C "$tree" archive HEAD | tar -C "$home/panoval" -xf -
inside chown -R stranger:stranger /home/stranger
launcher=
if [ -n "${PANOVAL_CCACHE:-}" ]; then
    inside apt-get install -y -qq --no-install-recommends ccache >>"$cache/install.log" 2>&1
    mkdir "$root/cache"
    mount --bind "$PANOVAL_CCACHE" "$root/cache"
    mounted="$mounted cache"
    launcher="LANG=${LANG:-C} CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_DIR=/cache CCACHE_READONLY=1 CCACHE_TEMPDIR=/tmp
        CCACHE_BASEDIR=/home/stranger CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=time_macros"
fi

echo "somebody who may not install anything is told so"
inside useradd -m -s /bin/sh guest
mkdir "$root/home/guest/panoval"
cp "$tree/dev" "$root/home/guest/panoval/"
if inside su - guest -c 'panoval/dev demo' >"$cache/guest.log" 2>&1; then
    fail "a guest has installed what the demonstration needs"
fi
grep -q '^dev: installing g++ ' "$cache/guest.log" && grep -q 'sudo: a password is required' "$cache/guest.log" ||
    fail "a guest was told: $(tail "$cache/guest.log")"
mv "$root/usr/bin/sudo" "$root/opt/"
inside su - guest -c 'panoval/dev demo' >"$cache/guest.log" 2>&1 || :
grep -q '^dev: need root or sudo to run: ' "$cache/guest.log" || fail "without sudo a guest was told: $(tail "$cache/guest.log")"
mv "$root/opt/sudo" "$root/usr/bin/"

sed -n '/^```sh/,/^```/p' "$tree/README.md" | sed '1d;/^```/,$d; s/ *#.*//' | head -n "$count" >"$cache/commands"
[ "$(wc -l <"$cache/commands")" -eq "$count" ] || fail "README.md begins with other commands: $(cat "$cache/commands")"
while IFS= read -r line; do
    echo "$line"
    as_stranger "cd panoval && env $(echo "$launcher" | tr '\n' ' ') $line" </dev/null || fail "'$line' failed"
done <"$cache/commands"
for picture in panorama.png ellipses.png edges.png repaired.png report.html; do
    [ -s "$home/panoval/demo/$picture" ] || fail "the demonstration has left no $picture"
done
echo "README.md's first $count commands work on a bare system"
