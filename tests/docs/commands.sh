#!/bin/sh
# Runs every command that the documentation shows, in a folder that has the pictures they name:
# commands.sh BUILD SOURCE WORK
# Shown are the blocks marked sh, each run as a script. A line that cannot be run stands in not_run.txt with its reason, and
# nothing else may.
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

# The blocks of a file as block-1, block-2 ...
cut_blocks() { # FILE
    rm -f block-*
    awk '/^```/ {on = ($0 == "```sh"); n += on; next} on && NF {sub(/[ \t]+#.*$/, ""); print >("block-" n)}' "$1"
}

reason() { # FILE COMMAND
    sed -n "s#^$1 | ##p" "$here/not_run.txt" | while IFS= read -r line; do
        case $2 in
        "${line%% | *}"*)
            echo "${line#* | }"
            break
            ;;
        esac
    done
}

status=0
run=0
left=0
for file in "$source"/*.md "$source"/docs/*.md "$source"/python/README.md; do
    file=${file#"$source/"}
    [ -e "$source/$file" ] || continue
    cd "$work/here"
    [ "$file" != CONTRIBUTING.md ] || cd "$work/clone"
    cut_blocks "$source/$file"
    for block in block-*; do
        [ -e "$block" ] || continue
        : >script
        while IFS= read -r command; do
            why=$(reason "$file" "$command")
            if [ -n "$why" ]; then
                left=$((left + 1))
                echo "$file: left out: $command ($why)"
            else
                run=$((run + 1))
                echo "$command" >>script
            fi
        done <"$block"
        if ! sh -e script >said 2>&1; then
            echo "$file: these commands fail:"
            cat script said
            status=1
        fi
    done
done

expected=$(grep -cv '^#' "$here/not_run.txt")
if [ "$left" -ne "$expected" ]; then
    echo "not_run.txt has $expected commands; the documentation shows $left of them"
    status=1
fi

# Commands of ./dev and of the program in running text are there.
known=$(sed -n '/^usage()/,/^TEXT/s/^  \([a-z0-9]*\) .*/\1/p' "$source/dev")
for name in $(cat "$source"/*.md "$source"/docs/*.md | grep -oE '`\./dev [a-z0-9]+' | sed 's/.* //' | sort -u); do
    echo "$known" | grep -qx "$name" || {
        echo "the documentation names ./dev $name, which there is not"
        status=1
    }
done
known=$(panoval --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
for name in $(cat "$source"/*.md "$source"/docs/*.md | grep -oE '`panoval [a-z]+' | sed 's/.* //' | sort -u); do
    echo "$known" | grep -qx "$name" || {
        echo "the documentation names panoval $name, which there is not"
        status=1
    }
done
[ $status -eq 0 ] && echo "$run lines of commands run, $left left out for a reason"
exit $status
