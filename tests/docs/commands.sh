#!/bin/sh
# Makes a folder with what the commands of the documentation name, and runs them there by run_shown.py:
# commands.sh BUILD SOURCE WORK
set -eu
build=$1
source=$2
work=$3
here=$(cd "$(dirname "$0")" && pwd)
rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/usr" >"$work/install.log"
PATH=$work/usr/bin:$PATH
PKG_CONFIG_PATH=$(dirname "$(find "$work/usr" -name panoval.pc)")
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")
export PATH PKG_CONFIG_PATH LD_LIBRARY_PATH

# What the commands name.
mkdir "$work/here"
cd "$work/here"
for folder in examples bench tools; do
    ln -s "$source/$folder" .
done
"$build/bin/make_scene" . >/dev/null
# More of the same beside it, so that there are tiles enough for tasks of a hundred.
"${PYTHON:-python3}" -c 'import json
places = json.load(open("layout.json"))
print(json.dumps(places + [dict(place, x=place["x"] + 4000) for place in places]))' >places.json
pictures=$(sed -n 's/.*"file": *"\([^"]*\)".*/\1/p' layout.json)
# shellcheck disable=SC2086 # a list of words
set -- $pictures
cp "$1" left.png
cp "$2" right.png
panoval stitch -q -o panorama.png --layout layout.json
"$build/bin/make_board" . panorama.png >/dev/null
panoval smooth -q panorama.png -o photo.jpg
# Tiles that other machines have made already.
panoval stitch -q --layout places.json -o plan.json --plan-only
tiles=$(panoval stitch --plan plan.json -o pano.zarr --dry-run --json | sed -n 's/^  "tiles": \([0-9]*\),/\1/p')
panoval stitch -q --plan plan.json -o pano.zarr --tile "100-$((tiles - 1))"
panoval threshold -q left.png -o scratches.png --level 1
cp left.png old.png
"${PYTHON:-python3}" bench/whole_program/make_layers.py .
cp layer0.tif 0.tif
cp layer1.tif 1.tif
mkdir FOLDER

# A clone of a repository, for what contributors do.
mkdir "$work/upstream"
tar -C "$source" --exclude=./build --exclude=./demo --exclude=./.git --exclude=__pycache__ -cf - . | tar -C "$work/upstream" -xf -
git -C "$work/upstream" init -q -b main
git -C "$work/upstream" add -A
git -C "$work/upstream" -c user.name=somebody -c user.email=somebody@localhost commit -q -m "the tree"
git clone -q "$work/upstream" "$work/clone"

# A cluster of one machine: its number of the task, and what spreads tasks, here one after the other.
SLURM_ARRAY_TASK_ID=0
export SLURM_ARRAY_TASK_ID
mkdir "$work/tools"
PATH=$work/tools:$PATH
cat >"$work/tools/parallel" <<'TEXT'
#!/bin/sh
while [ "$1" != panoval ]; do shift; done
while IFS= read -r task; do
    sh -c "$(echo "$*" | sed "s/{}/$task/")" || exit 1
done
TEXT
chmod +x "$work/tools/parallel"

for program in panoval_bench panoval_gigapixels host_costs; do
    ln -s "$build/bin/$program" "$work/tools/"
done
ln -s /usr/bin/python3 "$work/tools/python3" # whose modules the package manager installs
BUILD=$build
export BUILD
python3 "$here/run_shown.py" "$source" "$work/here" "$work/clone"
