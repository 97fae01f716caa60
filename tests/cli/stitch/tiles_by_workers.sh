#!/bin/sh
# Four workers fill a store in shuffled order, one is killed in mid-run, and what was lost is made: the same bytes as by
# a single run, and no tile made twice but those. tiles_by_workers.sh BIN
# BIN is the folder of the built programs.
. "$(dirname "$0")/../../support/work_folder.sh"

# A number of the JSON text in a file.
number() { # KEY FILE
    sed -n "s/.*\"$1\": \([0-9]*\).*/\1/p" "$2" | head -n 1
}

# Tiles of a list, three in each process.
cat >worker <<'TEXT'
xargs -n 3 <"$4" | tr ' ' ',' | while read -r tiles; do
    "$1" stitch --plan "$2" -o "$3" --tile "$tiles" --resume --quiet --threads 1 || exit 1
done
TEXT

marks() { # STORE
    find "$1/.panoval/tiles" -type f ! -name '*.part' -printf '%f %T@ %i\n' | sort
}

mkdir scene
"$bin/make_scene" scene >/dev/null

for size in 256 384 500; do
    "$panoval" stitch --layout scene/layout.json -o $size.json --plan-only --tile-size $size --quiet
    "$panoval" stitch --plan $size.json -o whole-$size.zarr --quiet
    "$panoval" stitch --plan $size.json -o count.zarr --tile 0 --json >count.log
    tiles=$(number tiles count.log)
    rm -rf count.zarr
    # every fourth tile of a shuffled order for each worker
    seq 0 $((tiles - 1)) | awk -v seed=$size 'BEGIN { srand(seed) } { print rand(), $1 }' | sort -n |
        awk '{ print $2 > ("list." NR % 4) }'
    pids=
    for i in 0 1 2 3; do
        setsid sh worker "$panoval" $size.json out.zarr list.$i >worker.$i 2>&1 & # a process group of its own
        pids="$pids $!"
        [ $i -ne 2 ] || killed=$!
    done
    # until the third has made something, then no mercy
    tries=0
    until [ -e out.zarr/.panoval/tiles ] && tr ' ' '\n' <list.2 |
        while read -r tile; do [ ! -e "out.zarr/.panoval/tiles/$tile" ] || echo made; done | grep -q made; do
        tries=$((tries + 1))
        [ $tries -lt 3000 ] || fail "the third worker makes nothing: $(cat worker.2)"
        sleep 0.01
    done
    kill -KILL "-$killed"
    for pid in $pids; do
        wait "$pid" || [ "$pid" = "$killed" ] || fail "a worker failed: $(cat worker.*)"
    done
    marks out.zarr >marks.before
    lost=$((tiles - $(wc -l <marks.before)))
    [ $lost -gt 0 ] || fail "the third worker was not killed in mid-run"
    "$panoval" stitch --plan $size.json -o out.zarr --resume --json >resume.log 2>&1 || fail "$(cat resume.log)"
    [ "$(number tiles_made resume.log)" -eq $lost ] || fail "expected $lost tiles to be made: $(cat resume.log)"
    marks out.zarr >marks.after
    [ -z "$(comm -23 marks.before marks.after)" ] || fail "tiles were made twice"
    find out.zarr -name '*.part' -delete # of the one that was killed
    diff -r out.zarr whole-$size.zarr || fail "other bytes than those of a single run"
    "$panoval" pyramid out.zarr -o $size.ppm --quiet
    rm -rf out.zarr list.*
    echo "tiles of $size pixels: $tiles, of which $lost were lost and made again"
done
cmp 384.ppm 256.ppm
cmp 500.ppm 256.ppm

# Beyond the limit of a file's size: the error names tile and file, nothing counts as done, and it can be made up for.
code=0
(
    ulimit -f 64
    exec "$panoval" stitch --plan 256.json -o limited.zarr --tile 20-21 --compression none --json >limited.log 2>limited.err
) || code=$?
[ $code -eq 6 ] || fail "exit code $code: $(cat limited.err)"
grep -q 'tile 20: limited.zarr/0/0/1/4: found an error while writing' limited.err || fail "$(cat limited.err)"
[ -z "$(find limited.zarr -name '*.part')" ] || fail "unfinished files stay"
[ -z "$(marks limited.zarr)" ] || fail "a tile counts as done"
"$panoval" stitch --plan 256.json -o limited.zarr --compression none --resume --quiet
"$panoval" pyramid limited.zarr -o limited.ppm --quiet
cmp limited.ppm 256.ppm
echo "four workers make what one makes"
